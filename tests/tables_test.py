"""Every table, in the context of every VRF, is row for row what the kernel has in that VRF's namespace."""

import ipaddress
import itertools
import random

from harness import SystemCase, background, eventually, main
from harness.kernel import GROUP, NOT_PERSISTENT, STATIC_ROUTE, fib_tables, kernel_tables
from harness.tables import (ADDR, BY_TYPE, FIB_TABLES, INET_ROUTE, IP, ROUTE, SUMMARY, VRF, VRF_IF, VRF_TABLES, numbers,
                            walk_tables)

# What two VRFs and the default one share: interface names, addresses, neighbours and routes.
INTERFACES = {"a0": ("10.0.0.1/24", "10.0.0.2/24", "172.16.0.1/12", "2001:db8::1/64", "2001:db8::2/64", "fe80::1/64"),
              "b0": ("10.0.1.1/24",), "c0": ("10.0.2.1/30",)}
NEIGHBOURS = (("10.0.0.7", "permanent"), ("10.0.0.8", "stale"), ("10.0.0.9", "reachable"), ("10.0.0.10", "failed"),
              ("10.0.0.11", "noarp"), ("169.254.0.7", "permanent"), ("169.254.0.8", "stale"),
              ("2001:db8::7", "permanent"), ("2001:db8::8", "stale"), ("2001:db8::a", "failed"),
              ("fe80::7", "permanent"), ("fe80::8", "stale"))
ROUTES = (
    "route add 10.1.0.0/16 via 10.0.0.9",                                        # through a gateway
    "route add 10.1.1.0/24 via 10.0.0.9 proto static metric 20",                 # inside it
    "route add 10.1.1.1/32 via 10.0.1.9 proto bgp metric 4294967295",
    "route add default via 10.0.2.2 proto ospf metric 100",
    "route add 10.2.0.0/16 dev b0 scope link proto rip",                         # on-link
    "route add 10.3.0.0/16 proto static nexthop via 10.0.1.9 nexthop via 10.0.0.9 weight 7 nexthop via 10.0.0.10",  # ECMP
    "route add 10.3.128.0/17 nexthop via 10.0.0.9 nexthop dev b0",
    "route add blackhole 10.4.0.0/16 proto isis",
    "route add unreachable 10.4.1.0/24",
    "route add prohibit 10.4.2.0/24 metric 3",
    "route add 10.5.0.0/16 via 192.0.2.1 dev a0 onlink",
    "route add 10.5.1.0/24 nexthop via inet6 fe80::9 dev a0 nexthop via 10.0.1.9",
    "route add 10.6.0.0/16 via 10.0.0.9 metric 5",
    "route add 10.6.0.0/16 via 10.0.1.9 metric 9",                               # stands behind the one before
    "nexthop add id 1 via 10.0.0.20 dev a0",
    "nexthop add id 2 via 10.0.1.20 dev b0",
    "nexthop add id 3 group 1/2",
    "route add 10.7.0.0/16 nhid 1",
    "route add 10.7.1.0/24 nhid 3",
    "nexthop add id 4 blackhole",
    "route add 10.7.2.0/24 nhid 4",
    "route add local 10.8.0.0/24 dev a0 table main",                             # not served
    "neigh replace 10.0.0.9 lladdr 02:00:00:00:00:06 dev b0",                    # a neighbour on two interfaces
    "nexthop add id 5 via 2001:db8::9 dev a0",
    "route add 2001:db8:ffff::/48 nhid 5 proto static",
    "route add 2001:db8:1::/48 via 2001:db8::9 proto bgp",
    "route add 2001:db8:2::/48 via fe80::9 dev a0 proto ospf",                   # link-local, as routing daemons have it
    "route add 2001:db8:3::/48 proto isis nexthop via fe80::9 dev a0 nexthop via fe80::9 dev b0 nexthop via 2001:db8::9",
    "route add 2001:db8:4::/48 dev c0 proto rip metric 7",
    "route add blackhole 2001:db8:5::/48",
    "route add unreachable 2001:db8:5:1::/64 proto static",
    "route add prohibit 2001:db8:5:2::/64",
    "route add unreachable ::/0 metric 4278198272",                              # as one adds to a VRF
    "route add 10.9.0.0/16 nexthop via inet6 fe80::9 dev a0 nexthop via inet6 fe80::9 dev b0 nexthop dev c0",
)
# Of a host that has a route and a neighbour, what came first counts in the FIB statistics: at a start, the route.
HOST = "route add 10.0.0.8/32 dev a0 proto static"
STAY = range(50)  # numbers of the rows that no change takes away
STAYING = [line for n in STAY
           for line in (f"addr add 10.200.0.{n}/32 dev s0", f"route add 20.0.{n}.0/24 dev s0 proto 99")]
GATEWAYS = ("via 10.0.0.9", "via 10.0.1.9", "dev b0", "nexthop via 10.0.1.9 nexthop via 10.0.0.9 weight 7",
             "nexthop via 10.0.0.9 nexthop dev b0", "via 192.0.2.1 dev a0 onlink")
GATEWAYS6 = ("via fe80::9 dev a0", "nexthop via fe80::9 dev a0 nexthop via fe80::9 dev b0", "via 2001:db8::9", "dev b0",
             "nexthop via 2001:db8::9 nexthop via fe80::9 dev b0")
OBJECTS = ("via 10.0.0.20 dev a0", "via 10.0.1.20 dev b0", "group 1/2", "blackhole")  # with the ids from 1 on
PROTOCOLS = (4, 3, 186, 188, 187, 189, 11, 42, 190, 196)


def random_lines(choice, is_quiet):
    """The commands of one change. What the order of earlier changes would decide has one value for each number. A quiet
    change moves no link and no address, which would make the mirror dump the routes again."""
    n, interface = choice.randrange(60), choice.choice("abc") + "0"
    add, replace = choice.choice(("add", "add", "del")), choice.choice(("replace", "replace", "del"))
    proto, state = f"proto {PROTOCOLS[n % 10]}", choice.choice(("permanent", "stale", "reachable", "failed"))
    hardware = f"02:00:00:00:{choice.randrange(256):02x}:{n:02x}"
    nhid = choice.randrange(1, len(OBJECTS) + 1)
    gateway = choice.choice(GATEWAYS) if n % 10 > 2 else f"nhid {nhid}"
    route = f"{gateway} metric {choice.choice((5, 9, 4294967295))}" if replace != "del" else ""
    quiet = (
        [f"neigh {replace} {choice.choice(('10.0.0.', 'fe80::', '2001:db8::'))}{100 + n} lladdr {hardware} "
         f"dev {interface} nud {state}"],
        *[[f"route {replace} 10.{100 + n}.0.0/{16 + n % 9} {route} {proto}"]] * 4,
        [f"route {replace} 2001:db8:{256 + n:x}::/{48 + n % 2 * 8} via 2001:db8::9 {proto}"],
        [f"route {add} {choice.choice(('blackhole', 'unreachable', 'prohibit'))} 10.99.{n}.0/24 {proto}"],
        [f"route {replace} 2001:db8:{512 + n:x}::/48 {choice.choice(GATEWAYS6) if replace != 'del' else ''} {proto}"],
        [f"nexthop add id {nhid} {OBJECTS[nhid - 1]}" if add == "add" else f"nexthop del id {nhid}"])
    loud = (
        [f"addr {add} 10.4{n % 3}.{n % 4}.{n}/24 dev {'abc'[n % 3]}0"],  # secondary where there is another one
        [f"addr {add} 10.50.{n}.1/{24 + ord(interface[0]) - ord('a')} dev {interface}"],
        [f"addr {add} 11.{n % 33}.0.1/{n % 33} dev b0"],
        [f"addr {add} 10.0.9.{n} peer 10.9.9.{n}/32 dev b0"],
        [f"addr {add} 2001:db8:{16 + n % 8:x}::{n}/{48 + n % 3 * 8} dev {interface}"],
        ["neigh flush all nud stale", f"route flush {proto}"],
        [f"link set {interface} {choice.choice(('down', 'up', 'up'))}"],
        ["link set c0 down", "link set c0 name d0", "link set d0 up"],
        ["link set d0 down", "link set d0 name c0", "link set c0 up"],
        [f"link del {interface}"],
        *[[f"link add {interface} type veth peer name {interface}-p", f"link set {interface}-p up",
           f"link set {interface} up", *(f"addr add {address} dev {interface}" for address in INTERFACES[interface])]] * 3)
    return choice.choice(quiet if is_quiet else (*quiet, *loud))


class TablesTest(SystemCase):
    communities = ("red", "blue", "green")

    def populate(self, namespace, mark, *lines):
        """The same in each VRF, but for the hardware addresses of the neighbours, which tell the VRFs apart, and `lines`."""
        for name, addresses in INTERFACES.items():
            namespace.add_interface(name, *addresses)
        namespace.ip(*(
            f"neigh replace {address} {'' if state == 'failed' else f'lladdr 02:00:00:00:{mark:02x}:{n:02x}'} "
            f"dev a0 nud {state}" for n, (address, state) in enumerate(NEIGHBOURS)), *ROUTES, *lines)

    def add_vrf(self, name, mark, *lines):
        namespace = self.vrfs.add(name)
        self.populate(namespace, mark, *lines)
        return namespace

    def expect_everything(self):
        for name in (None, *self.vrfs.namespaces):
            self.expect_context(name)
        self.expect_vrf_tables()

    def expect_short_answers(self, vrf, size):
        def user(*options):
            return self.user(vrf, options=(f"--sendMessageMaxSize={size}", *options))

        walked = self.client_of(vrf).walk(IP)
        self.expect(lambda: user().walk(IP), lambda: self.client_of(vrf).walk(IP), "GETBULKs")
        asked = [f"{IP}.{name}" for name in ("1", "24.7.1.7", "24.7.1.9", "32.1.5", "34.1.3")]
        once, *starts = (next(at for at, bind in enumerate(walked) if numbers(bind.oid) > numbers(name)) for name in asked)
        expected = [walked[once]] + [walked[start + row] for row in range(10) for start in starts]
        answer = user("-Cn1", "-Cr60").ask("snmpbulkget", *asked)[:len(expected)]
        self.assertGreater(len(answer), 6)
        self.assertEqual(answer, expected[:len(answer)])
        for more in ((), (f"{IP}.31.3.99",)):  # which is looked for behind its table, when net-snmp estimates the length
            self.assertEqual(user().ask("snmpgetnext", *[f"{IP}.24.7"] * (size // 24), *more), [], "tooBig")

    def test_overlapping_vrfs_in_every_context(self):
        self.populate(self.namespace, 0x10, HOST)
        self.add_vrf("red", 0x11, HOST)
        self.start_system()
        self.add_vrf("blue", 0x12)
        self.vrfs.add("green")
        for name in self.vrfs.namespaces:
            self.expect_context(name, self.user(name))
        self.expect_everything()
        self.expect_context(client=self.user(""))

        with self.subTest("the VRF tables are in the default context alone"):
            self.assertEqual(walk_tables(self.client_of("red"), *VRF_TABLES), {VRF: {}, VRF_IF: {}})
        with self.subTest("GET, GETNEXT and GETBULK say the same"):
            self.expect_one_answer(self.client_of("blue"), IP)
        for size in (484, 900, 1472):
            with self.subTest("an SNMPv3 client that takes short answers alone", size=size):
                self.expect_short_answers("blue", size)
        with self.subTest("a VRF that is gone takes its rows along"):
            self.vrfs.remove("red")
            red = self.community("c-red", timeout=0.3)
            eventually(lambda: not red.answers(), "red still answers")
            self.expect_everything()

    def test_random_changes_under_walkers(self):
        seed = random.randrange(1 << 32)
        choice = random.Random(seed)
        self.configure("quorinRouteCountInterval 1")
        red, blue = self.vrfs.add("red"), self.vrfs.add("blue")
        for promotes, namespace in enumerate((red, blue)):
            for conf in ("ipv4.conf.all.promote_secondaries", "ipv4.conf.default.promote_secondaries"):
                namespace.sysctl(f"net.{conf}", promotes)
        self.populate(red, 0x11)
        red.add_interface("s0")
        red.ip(*STAYING)
        self.start_system()
        self.populate(blue, 0x12)
        client = self.client_of("red")

        tools = itertools.cycle(("snmpwalk", "snmpbulkwalk"))

        def walk():  # the tools themselves stop with "OID not increasing" on a row out of order or repeated
            tables = walk_tables(client, ADDR, ROUTE, INET_ROUTE, may_be_torn=True, tool=next(tools))
            self.assertLessEqual({(1, 4, 20, 0, n, 0) for n in STAY}, {index[:6] for index in tables[INET_ROUTE]})
            self.assertLessEqual({(10, 200, 0, n) for n in STAY}, set(tables[ADDR]))
            self.assertLessEqual({(20, 0, n, 0) for n in STAY}, {index[:4] for index in tables[ROUTE]})

        with self.subTest(seed=seed):
            self.expect_everything()
            with background(walk) as failures:
                for count, is_quiet in itertools.product((3, 10, 30, 300) * 4, (True, False)):
                    for namespace in (red, blue):
                        lines = (line for _ in range(count) for line in random_lines(choice, is_quiet))
                        namespace.ip(*lines, may_fail=True)
                        namespace.sysctl("net.ipv4.ip_forward", choice.randrange(2))
                    self.namespace.sysctl("net.ipv6.conf.all.forwarding", choice.randrange(2))
                    self.assertEqual(failures, [])
                    self.expect_everything()
            for number, table in ((3, ROUTE), (6, INET_ROUTE)):
                self.expect(lambda: client.get(f"{IP}.24.{number}.0")[0].value, lambda: str(len(kernel_tables(red)[table])),
                            "ipCidrRouteNumber or inetCidrRouteNumber")
            red.ip("neigh flush all nud all", "route flush table main", may_fail=True)
            self.expect_everything()

    def test_settings_of_the_mirror_and_of_the_agent(self):
        red = self.vrfs.add("red")
        configured, routes, entries = {}, [], []
        for number, (kind, facts) in enumerate({STATIC_ROUTE: "", NOT_PERSISTENT: ", persistent: false",
                                                GROUP: ", preference: 1, nexthopGroup: true"}.items(), 1):
            for prefix, hop in (f"198.51.{number}.0/24", "10.0.0.9"), (f"2001:db8:{number}::/48", "2001:db8::9"):
                configured[ipaddress.ip_network(prefix)] = kind
                protocol = {STATIC_ROUTE: "boot", GROUP: "196"}.get(kind, "static")
                routes.append(f"route add {prefix} via {hop} metric 7 proto {protocol}")
                entries.append(f"{{prefix: '{prefix}'{facts}}}")

        def configure(distinguisher):
            return self.write_file("mirror.yaml", f"vrfs: {{default: {{staticRoutes: [{', '.join(entries)}]}}, "
                                   f"red: {{routeDistinguisher: '{distinguisher}'}}}}\n")

        def expect_counts(entries, expected, client=self.client):
            self.expect(lambda: walk_tables(client, *entries), lambda: expected, "FIB statistics")

        for namespace in (self.namespace, red):
            namespace.add_interface("a0", "10.0.0.1/24", "2001:db8::1/64")
            namespace.ip(*routes)
        self.namespace.ip("neigh add 10.0.0.7 lladdr 02:00:00:00:00:07 dev a0")
        self.start_system("--config", configure("65000:1"))
        counts = fib_tables(self.namespace, configured=configured)
        expect_counts(FIB_TABLES, counts)
        self.expect_context("red")
        self.expect_vrf_tables(distinguishers={"red": "65000:1"})
        configure("192.0.2.1:7")
        self.expect_vrf_tables(distinguishers={"red": "192.0.2.1:7"})
        with self.subTest("neighbours on management interfaces do not count"):
            self.reconfigure("quorinManagementInterfaces a0")
            ipv4 = int(counts[SUMMARY][1,][2])
            expect_counts([SUMMARY], {SUMMARY: {**counts[SUMMARY], (1,): {2: str(ipv4 - 1)}}})
        with self.subTest("a route keeps the kind as which it was first counted"):
            before = fib_tables(red)[BY_TYPE]
            red.ip(*(line.replace("add", "replace").replace("static", "boot") for line in routes))
            self.assertNotEqual(fib_tables(red)[BY_TYPE], before)
            red.ip("route add 198.51.9.0/24 via 10.0.0.9 proto bgp")  # to wait for
            expect_counts([BY_TYPE], {BY_TYPE: {**before, (1, 14): {2: "1"}}}, self.client_of("red"))


if __name__ == "__main__":
    main()
