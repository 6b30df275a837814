"""The counters of VRFs and interfaces are those of the kernel's files, read in each VRF's namespace."""

from harness import SystemCase, eventually, main
from harness.kernel import (DYNAMIC, default_routers, interface_rows, interface_tables, sw_fwd_row,
                            system_stats_row)
from harness.snmp import ticks
from harness.tables import (DEFAULT_ROUTER, IF_STATS, IP, IP_INTERFACE_TABLES, IP_TABLES, MEDIA, SW_FWD, SYSTEM_STATS,
                            walk_table, walk_tables)

ADVICE = "'quorinKernelIpHeader any'"
RED, BLUE = "red", "blue"


class CountersTest(SystemCase):
    communities = (RED, BLUE)

    def sw_fwd(self, name=None):
        return walk_table(self.client_of(name), SW_FWD)

    def expect_rows(self, name, namespace, versions=(1, 2)):
        def served():
            tables = walk_tables(self.client_of(name), SW_FWD, SYSTEM_STATS, may_be_torn=True)
            return {entry: {(version,): rows[(version,)] for version in versions} for entry, rows in tables.items()}

        self.expect(served, lambda: {entry: {(version,): row(namespace, version) for version in versions}
                                     for entry, row in ((SW_FWD, sw_fwd_row), (SYSTEM_STATS, system_stats_row))}, name)

    def expect_interfaces(self, name, namespace):
        self.expect(lambda: walk_tables(self.client_of(name), *IP_INTERFACE_TABLES, may_be_torn=True),
                    lambda: interface_tables(namespace, self.vrf_id(name)), f"interfaces of {name}")

    def expect_routers(self, name, namespace):
        def rounded(rows):  # a lifetime may be read a moment later, or a minute earlier
            return {DEFAULT_ROUTER: {index: (lifetime if lifetime == 65535 else lifetime // 200 * 200, preference)
                                     for index, (lifetime, preference) in rows.items()}}

        self.expect(lambda: rounded({index: (int(row[4]), row[5]) for index, row in
                                     walk_table(self.client_of(name), DEFAULT_ROUTER).items()}),
                    lambda: rounded(default_routers(namespace, self.vrf_id(name))), f"default routers of {name}")

    def test_rows_are_the_kernels_counters(self):
        red = self.vrfs.add(RED, "link add r0 type veth peer name b0", "link set r0 up", "addr add 10.0.0.1/24 dev r0",
                            "addr add 2001:db8::1/64 dev r0 nodad")
        blue = self.vrfs.add(BLUE)
        red.ip(f"link set b0 netns {blue.file}")
        red.sysctl("net.ipv4.ip_default_ttl", 77)
        red.sysctl("net.ipv4.neigh.r0.retrans_time_ms", 1500)
        red.sysctl("net.ipv6.neigh.r0.base_reachable_time_ms", 20000)
        blue.ip("link set b0 up", "addr add 10.0.0.2/24 dev b0", "addr add 2001:db8::2/64 dev b0 nodad")
        directory = f"quorinNetnsDir {self.vrfs.path}"
        self.configure(directory)
        self.start_system()
        for name in (RED, BLUE):
            self.wait_for_context(self.client_of(name))

        header = len(red.run("head", "-1", "/proc/net/snmp").stdout)
        with self.subTest("a kernel with a longer header is told of once, and refused"):
            self.assertEqual(self.sw_fwd(RED)[(1,)][3] == "0", header != 224)
            self.assertEqual(self.agent.output().count(ADVICE), 0 if header == 224 else 1)
        self.reconfigure(directory, "quorinKernelIpHeader any")

        red.send("10.0.0.2", [bytes(100)] * 30)
        red.send("2001:db8::2", [bytes(100)] * 20)
        self.expect_rows(RED, red)
        self.expect_rows(BLUE, blue)
        with self.subTest("neighbours that the kernel resolved itself"):
            for name in (RED, BLUE):
                self.expect_context(name, entries=IP_TABLES)
                self.assertIn(DYNAMIC, {row[4] for row in walk_table(self.client_of(name), MEDIA).values()})
        self.assertGreaterEqual(int(self.sw_fwd(RED)[(1,)][21]), 30)
        self.assertNotEqual(self.sw_fwd(RED)[(1,)], self.sw_fwd(BLUE)[(1,)])
        with self.subTest("the default context has its own"):
            self.expect_rows(None, self.namespace, versions=(2,))  # requests are IPv4
            first = int(self.sw_fwd()[(1,)][4])
            eventually(lambda: int(self.sw_fwd()[(1,)][4]) > first, "requests are not counted")
        with self.subTest("counters of the interfaces of all VRFs, in the default context alone"):
            self.expect(lambda: walk_tables(self.client, IF_STATS), lambda: {
                IF_STATS: interface_rows(self.namespace, 0) | interface_rows(red, self.vrf_id(RED))
                | interface_rows(blue, self.vrf_id(BLUE))}, "interfaces")
            self.assertEqual(walk_table(self.client_of(RED), IF_STATS), {})
        with self.subTest("how IP runs on the interfaces of each VRF"):
            last_changes = [f"{IP}.{number}.0" for number in ("29", "31.2")]
            before = list(map(ticks, self.client_of(RED).get(*last_changes)))
            self.expect_interfaces(None, self.namespace)
            self.expect_interfaces(BLUE, blue)
            red.sysctl("net.ipv6.conf.r0.forwarding", 1)
            red.ip("link add gone type veth peer name gone-p")
            self.expect_interfaces(RED, red)
            red.sysctl("net.ipv6.conf.r0.disable_ipv6", 1)
            red.ip("link del gone")
            self.expect_interfaces(RED, red)
            after = map(ticks, self.client_of(RED).get(*last_changes))
            self.assertTrue(all(now > then for now, then in zip(after, before)))
        with self.subTest("default routers, and how long those of advertisements last"):
            red.sysctl("net.ipv6.conf.r0.disable_ipv6", 0)
            red.ip("route add default nexthop via 10.0.0.2 dev r0 nexthop via 10.0.0.3 dev r0",
                   "route add default via 10.0.0.4 metric 7",
                   "route add default via fe80::1 dev r0 proto ra metric 10 expires 1000 pref high",
                   "route add default via fe80::2 dev r0 metric 20")
            self.expect_routers(RED, red)
            self.assertEqual(len(default_routers(red)), 5)
            red.ip("route del default via fe80::1 dev r0", "route del default metric 7")
            self.expect_routers(RED, red)
            self.expect_routers(BLUE, blue)
        with self.subTest("the option overrides the configuration"):
            self.reconfigure("quorinKernelIpHeader any", "quorinNetnsDir /nowhere")
            self.sw_fwd(BLUE)
            self.agent.wait_for_output(f"/nowhere/ns-{BLUE}")
            self.assertEqual(self.agent.stop(), 0)
            self.start_agent("--netns-dir", self.vrfs.path)
            self.expect_rows(BLUE, blue, versions=(2,))


if __name__ == "__main__":
    main()
