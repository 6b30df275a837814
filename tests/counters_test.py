"""The counters of VRFs and interfaces are those of the kernel's files, read in each VRF's namespace."""

from harness import SystemCase, eventually, main
from harness.kernel import DYNAMIC, interface_rows, sw_fwd_row, system_stats_row
from harness.tables import IF_STATS, IP_TABLES, MEDIA, SW_FWD, SYSTEM_STATS, walk_table, walk_tables

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

    def test_rows_are_the_kernels_counters(self):
        red = self.vrfs.add(RED, "link add r0 type veth peer name b0", "link set r0 up", "addr add 10.0.0.1/24 dev r0",
                            "addr add 2001:db8::1/64 dev r0 nodad")
        blue = self.vrfs.add(BLUE)
        red.ip(f"link set b0 netns {blue.file}")
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
        with self.subTest("the option overrides the configuration"):
            self.reconfigure("quorinKernelIpHeader any", "quorinNetnsDir /nowhere")
            self.sw_fwd(BLUE)
            self.agent.wait_for_output(f"/nowhere/ns-{BLUE}")
            self.assertEqual(self.agent.stop(), 0)
            self.start_agent("--netns-dir", self.vrfs.path)
            self.expect_rows(BLUE, blue, versions=(2,))


if __name__ == "__main__":
    main()
