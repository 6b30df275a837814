"""The counters of VRFs and interfaces are those of the kernel's files, read in each VRF's namespace."""

import re
import signal

from harness import eventually, main
from harness.snmp import SYS_UP_TIME
from harness.tables import ENTERPRISE, IF_INDEX_BITS, read_tables
from harness.vrfcase import VrfCase

SW_FWD = f"{ENTERPRISE}.3.1.1.1.1"
IF_STATS = f"{ENTERPRISE}.3.27.1.1.1"
ADVICE = "'quorinKernelIpHeader any'"
RED, BLUE = "red", "blue"

# Where the columns of quorinSwFwdIpStatsTable come from, by the kernel's names without "Ip6"; "+" and "-" derive.
COLUMNS = {
    3: "InReceives", 5: "InOctets", 7: "InHdrErrors", 8: "InNoRoutes", 9: "InAddrErrors", 10: "InUnknownProtos",
    11: "InTruncatedPkts", 12: "OutForwDatagrams +InNoRoutes", 14: "ReasmReqds", 15: "ReasmOKs", 16: "ReasmFails",
    17: "InDiscards", 18: "InDelivers", 20: "OutRequests", 22: "OutNoRoutes", 23: "OutForwDatagrams", 25: "OutDiscards",
    26: "FragOKs +FragFails", 27: "FragOKs", 28: "FragFails", 29: "FragCreates",
    30: "OutForwDatagrams +OutRequests -FragFails -OutNoRoutes -OutDiscards -FragOKs +FragCreates", 32: "OutOctets",
    34: "InMcastPkts", 36: "InMcastOctets", 38: "OutMcastPkts", 40: "OutMcastOctets", 42: "InBcastPkts", 44: "OutBcastPkts"}
WIDE = {4: 3, 6: 5, 13: 12, 19: 18, 21: 20, 24: 23, 31: 30, **{column + 1: column for column in range(32, 46, 2)}}


def named_values(namespace, file, block):
    """Names and values of a block of /proc/net/snmp or netstat, which has a line of each."""
    names, values = [line.split()[1:] for line in namespace.run("cat", f"/proc/net/{file}").stdout.splitlines()
                     if line.startswith(f"{block}: ")]
    return dict(zip(names, map(int, values)))


def counters6(namespace, file):
    pairs = (line.split() for line in namespace.run("cat", f"/proc/net/{file}").stdout.splitlines())
    return {name.removeprefix("Ip6"): int(value) for name, value in pairs if name.startswith("Ip6")}


def kernel_row(namespace, version):
    if version == 2:
        counters = counters6(namespace, "snmp6")
    else:
        counters = named_values(namespace, "snmp", "Ip")
        counters["OutForwDatagrams"] = counters["ForwDatagrams"]
        octets = ("InOctets", "OutOctets", "InMcastOctets", "OutMcastOctets")  # which are not read
        counters |= {**named_values(namespace, "netstat", "IpExt"), **dict.fromkeys(octets, 0)}

    def value(sources):
        terms = ((-1 if name.startswith("-") else 1) * counters.get(name.lstrip("+-"), 0) for name in sources.split())
        return sum(terms) % 2**64

    row = {column: str(value(sources) % 2**32) for column, sources in COLUMNS.items()}
    row |= {column: str(value(COLUMNS[source])) for column, source in WIDE.items()}
    return {**row, 46: "(time)", 47: "500"}


def interface_rows(namespace, vrf_id):
    rows = {}
    for link in namespace.ip_json("link"):
        told = counters6(namespace, f"dev_snmp6/{link['ifname']}")
        out = told.get("OutTransmits", told["OutRequests"] + told["OutForwDatagrams"])
        all_of = {"In": (told["InReceives"], told["InOctets"]), "Out": (out, told["OutOctets"])}
        mcast = {way: (told[f"{way}McastPkts"], told[f"{way}McastOctets"]) for way in all_of}
        ucast = {way: tuple(max(a - m, 0) for a, m in zip(all_of[way], mcast[way])) for way in all_of}
        values = [str(value) for kind in (all_of, ucast, mcast) for way in ("In", "Out") for value in kind[way]]
        rows[(2, vrf_id << IF_INDEX_BITS | link["ifindex"])] = {
            **dict(enumerate(values, 3)), 15: "(time)", 16: "2000"}
    return rows


class CountersTest(VrfCase):
    communities = (RED, BLUE)

    def send(self, namespace, target, count):
        namespace.run("python3", "-c", "import socket,sys; a = sys.argv[1]; s = socket.socket(socket.AF_INET6 if ':' in a "
                      "else socket.AF_INET, socket.SOCK_DGRAM); [s.sendto(bytes(100), (a, 9)) for n in range(int(sys.argv[2]))]",
                      target, str(count))

    def sw_fwd(self, client):
        return read_tables(client.bulk_walk(SW_FWD), [SW_FWD])[SW_FWD]

    def expect_rows(self, name, namespace):
        self.expect(lambda: {SW_FWD: self.sw_fwd(self.community(f"c-{name}"))},
                    lambda: {SW_FWD: {(version,): kernel_row(namespace, version) for version in (1, 2)}}, name)

    def test_rows_are_the_kernels_counters(self):
        red = self.vrfs.add(RED, "link add r0 type veth peer name b0", "link set r0 up", "addr add 10.0.0.1/24 dev r0",
                            "addr add 2001:db8::1/64 dev r0 nodad")
        blue = self.vrfs.add(BLUE)
        red.ip("link", "set", "b0", "netns", blue.file)
        blue.ip_batch(["link set b0 up", "addr add 10.0.0.2/24 dev b0", "addr add 2001:db8::2/64 dev b0 nodad"])
        with open(self.configuration, encoding="utf-8") as file:
            strict = file.read() + f"quorinNetnsDir {self.vrfs.path}\n"
        self.write_configuration(strict)
        self.start_system()
        for name in (RED, BLUE):
            self.wait_for_context(self.community(f"c-{name}"))

        header = len(red.run("head", "-1", "/proc/net/snmp").stdout)
        with self.subTest("a kernel with a longer header is told of once, and refused"):
            said = [line for line in self.agent.lines() if ADVICE in line]
            self.assertEqual(len(said), 0 if header == 224 else 1)
            row = self.sw_fwd(self.community(f"c-{RED}"))[(1,)]
            self.assertEqual(row[3] == "0", header != 224)
        self.write_configuration(strict + "quorinKernelIpHeader any\n")
        self.agent.signal(signal.SIGHUP)
        self.agent.wait_for_output(re.compile("has been read again"))

        self.send(red, "10.0.0.2", 30)
        self.send(red, "2001:db8::2", 20)
        self.send(blue, "127.0.0.1", 5)
        self.expect_rows(RED, red)
        self.expect_rows(BLUE, blue)
        rows = [self.sw_fwd(self.community(f"c-{name}")) for name in (RED, BLUE)]
        self.assertGreaterEqual(int(rows[0][(1,)][21]), 30)
        self.assertNotEqual(rows[0][(1,)], rows[1][(1,)])
        with self.subTest("the default context has its own"):
            self.expect(lambda: {SW_FWD: {(2,): self.sw_fwd(self.default)[(2,)]}},
                        lambda: {SW_FWD: {(2,): kernel_row(self.namespace, 2)}}, "default")
            first = int(self.sw_fwd(self.default)[(1,)][4])
            eventually(lambda: int(self.sw_fwd(self.default)[(1,)][4]) > first, "requests are not counted")
        with self.subTest("counters of the interfaces of all VRFs, in the default context alone"):
            def expected():
                return {IF_STATS: interface_rows(self.namespace, 0) | interface_rows(red, self.vrf_id(RED))
                        | interface_rows(blue, self.vrf_id(BLUE))}

            self.expect(lambda: read_tables(self.default.bulk_walk(IF_STATS), [IF_STATS]), expected, "interfaces")
            self.assertEqual([bind for bind in self.community(f"c-{RED}").walk(IF_STATS) if bind.exists], [])
        with self.subTest("the last values stay when the namespace is not found, as long as the context is there"):
            client = self.community(f"c-{BLUE}")
            self.write_configuration(strict + "quorinKernelIpHeader any\nquorinNetnsDir /nowhere\n")
            self.agent.signal(signal.SIGHUP)

            def told():
                self.sw_fwd(client)
                return f"/nowhere/ns-{BLUE}" in self.agent.output()

            eventually(told, "the agent does not say that it cannot read")
            last = self.sw_fwd(client)
            self.assertGreaterEqual(int(last[(1,)][21]), 5)
            self.send(blue, "127.0.0.1", 5)
            self.assertEqual(self.sw_fwd(client), last)
        with self.subTest("the option wins"):
            self.agent.stop()
            self.agent = self.start_agent("--netns-dir", self.vrfs.path)
            self.wait_for_context(client)
            eventually(lambda: self.sw_fwd(client)[(2,)] == kernel_row(blue, 2), "the agent reads elsewhere")
        self.assertTrue(self.default.has(SYS_UP_TIME))


if __name__ == "__main__":
    main()
