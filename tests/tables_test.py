"""Every table, in the context of every VRF, is row for row what the kernel has in that VRF's namespace."""

import random

from harness import eventually, main
from harness.kernel import (DYNAMIC, GROUP, LOCAL, NOT_PERSISTENT, STATIC, STATIC_ROUTE, fib_tables, inet, ipaddress,
                            kernel_tables)
from harness.case import SystemCase
from harness.snmp import IP_FORWARDING, IPV6_IP_FORWARDING, SYS_UP_TIME, ticks
from harness.tables import (ADDR, ADDRESS, BY_TYPE, CONTEXT_TABLES, FIB_TABLES, IP, IP_TABLES, PHYSICAL, PREFIX,
                            ROUTE, SUMMARY, VRF, VRF_IF, VRF_TABLES, walk_table, walk_tables)

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
)
# Of a host that has a route and a neighbour, what came first counts in the FIB statistics: at a start, the route.
HOST = "route add 10.0.0.8/32 dev a0 proto static"
PAIR = "link add {0} type veth peer name {0}-p", "link set {0}-p up", "link set {0} up"
CHANGES = (
    ("every mask", "red", [f"addr add 11.{length}.0.1/{length} dev b0" for length in range(33)]),
    ("the same again, gone", "red", [f"addr del 11.{length}.0.1/{length} dev b0" for length in range(33)]),
    ("a point-to-point address is the local one", "red", ["addr add 10.0.9.9 peer 10.9.9.9/32 dev b0"]),
    ("one address with two prefix lengths", "blue", ["addr add 10.0.0.1/16 dev a0"]),
    ("and with the second of them", "blue", ["addr del 10.0.0.1/24 dev a0", "addr add 10.0.0.1/24 dev a0",
                                             "addr del 10.0.0.1/16 dev a0"]),
    ("address added", "red", ["addr add 10.0.9.1/30 dev a0", "addr add 2001:db8:9::1/48 dev a0"]),
    ("address deleted", "red", ["addr del 172.16.0.1/12 dev a0", "addr del 2001:db8:9::1/48 dev a0"]),
    ("the first of two IPv6 addresses with one prefix deleted", "red", ["addr del 2001:db8::1/64 dev a0"]),
    ("the first IPv4 address of a network, in whose place the second one comes", "blue", ["addr del 10.0.0.1/24 dev a0"]),
    ("where the first one takes the others along", "red", ["addr add 10.9.0.1/24 dev a0", "addr add 10.9.0.2/24 dev a0",
                                                           "addr add 10.9.0.3/32 dev a0", "addr del 10.9.0.1/24 dev a0"]),
    ("address again", "blue", ["addr add 10.0.0.1/24 dev a0"]),
    ("prefix length changed", "blue", ["addr del 2001:db8::2/64 dev a0", "addr add 2001:db8::2/56 dev a0"]),
    ("one address on two interfaces", "blue", [*(line.format("a1") for line in PAIR), "addr add 10.0.0.1/28 dev a1"]),
    ("and the first of them down", "blue", ["link set a0 down"]),
    ("and up again", "blue", ["link set a0 up", "neigh replace 10.0.0.7 lladdr 02:00:00:00:12:77 dev a0"]),
    ("neighbour added", "red", ["neigh add 10.0.0.77 lladdr 02:00:00:00:11:77 dev a0",
                                "neigh add 2001:db8::77 lladdr 02:00:00:00:11:78 dev a0 nud stale"]),
    ("hardware address changed", "red", ["neigh replace 10.0.0.77 lladdr 02:00:00:00:11:79 dev a0",
                                         "neigh replace fe80::8 lladdr 02:00:00:00:11:7a dev a0 nud stale"]),
    ("dynamic becomes static, and back", "red", ["neigh replace 10.0.0.8 dev a0 nud permanent",
                                                 "neigh replace 10.0.0.7 dev a0 nud stale"]),
    ("neighbour deleted", "red", ["neigh del 10.0.0.77 dev a0", "neigh del fe80::7 dev a0", "neigh del 10.0.0.8 dev a0"]),
    ("one of a neighbour's two interfaces left", "red", ["neigh del 10.0.0.9 dev b0"]),
    ("neighbour not resolved any more", "red", ["neigh replace 2001:db8::77 dev a0 nud failed"]),
    ("all neighbours flushed", "red", ["neigh flush all nud all"]),
    ("route replaced by another gateway", "red", ["route replace 10.1.0.0/16 via 10.0.1.77"]),
    ("by several next hops", "red", ["route replace 10.2.0.0/16 proto rip nexthop via 10.0.0.3 nexthop via 10.0.1.3"]),
    ("a next hop less", "red", ["route replace 10.3.0.0/16 proto static nexthop via 10.0.0.9 nexthop via 10.0.0.10"]),
    ("routes withdrawn", "red", ["route del 10.1.1.0/24", "route del blackhole 10.4.0.0/16",
                                 "route del 2001:db8:1::/48"]),
    ("the best of two goes", "red", ["route del 10.6.0.0/16 metric 5"]),
    ("a better one comes", "red", ["route add 10.6.0.0/16 via 10.0.1.8 metric 1"]),
    ("next-hop objects deleted", "red", ["nexthop del id 4", "nexthop del id 1"]),
    ("interface down", "red", ["link set b0 down"]),
    ("and up", "red", ["link set b0 up", "route replace 10.2.0.0/16 via 10.0.1.3 proto rip"]),
    ("interface renamed", "red", ["link set c0 down", "link set c0 name d0", "link set d0 up",
                                  "route add 10.10.0.0/16 via 10.0.2.2"]),
    ("interface deleted", "red", ["link del a0"]),
    ("interface made again", "red", [*(line.format("a0") for line in PAIR), "addr add 10.0.0.1/24 dev a0"]),
    ("all routes flushed", "red", ["route flush table main"]),
)


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

    def test_overlapping_vrfs_in_every_context(self):
        self.populate(self.namespace, 0x10, HOST)
        red = self.add_vrf("red", 0x11, HOST)
        self.start_system()
        self.add_vrf("blue", 0x12)
        self.vrfs.add("green")
        for name in self.vrfs.namespaces:
            self.expect_context(name, self.user(name))
        self.expect_everything()
        self.expect_context(client=self.user(""))

        with self.subTest("values that the comparison with the kernel derives itself"):
            tables = walk_tables(self.client_of("red"), *CONTEXT_TABLES)
            if_index = self.vrf_id("red") << 20 | red.if_index("a0")
            self.assertEqual(tables[ADDR][(172, 16, 0, 1)][3], "255.240.0.0")
            self.assertEqual(tables[ADDRESS][(1, 4, 172, 16, 0, 1)][5],
                             f"{PREFIX}.5.{if_index}.1.4.172.16.0.0.12")
            self.assertNotIn((2, 16, *[0] * 15, 1), tables[ADDR])
            for number, (address, state) in enumerate(NEIGHBOURS):
                row = tables[PHYSICAL].get((if_index, *inet(address)))
                self.assertEqual(row is not None, state not in ("failed", "noarp"), address)
                if row:
                    kind = LOCAL if address.startswith(("169.254", "fe80")) else STATIC if state == "permanent" else DYNAMIC
                    self.assertEqual((row[4], row[6]), (f"0200000011{number:02x}", kind))
            ecmp = [index[9:] for index in tables[ROUTE] if index[:8] == (10, 3, 0, 0, 255, 255, 0, 0)]
            self.assertEqual(ecmp, [(10, 0, 0, 9), (10, 0, 0, 10), (10, 0, 1, 9)])
            blackhole = tables[ROUTE][(10, 4, 0, 0, 255, 255, 0, 0, 0, 0, 0, 0, 0)]
            self.assertEqual((blackhole[5], blackhole[6]), ("0", "3"))
            self.assertNotIn((10, 8, 0, 0), {index[:4] for index in tables[ROUTE]})
            self.assertGreater(len(tables[BY_TYPE]), 10)
        with self.subTest("times of neighbours are within the life of the agent"):
            up = ticks(self.client.get(SYS_UP_TIME)[0])
            for bind in self.client_of("blue").walk(f"{PHYSICAL}.5"):
                self.assertTrue(0 <= ticks(bind) <= up + 100, bind)
        with self.subTest("the VRF tables are in the default context alone"):
            self.assertEqual(walk_tables(self.client_of("red"), *VRF_TABLES), {VRF: {}, VRF_IF: {}})
        with self.subTest("GET, GETNEXT and GETBULK say the same"):
            self.expect_one_answer(self.client_of("blue"), IP)
        with self.subTest("a VRF that is gone takes its rows along"):
            self.vrfs.remove("red")
            gone = self.client_of("red")
            eventually(lambda: not any(bind.exists for bind in gone.bulk_walk(IP)), "red still answers")
            self.expect_everything()

    def test_changes_while_it_runs(self):
        self.add_vrf("red", 0x11, HOST)
        self.configure("quorinRouteCountInterval 86400")
        self.start_system()
        blue = self.add_vrf("blue", 0x12)
        client = self.client_of("blue")
        for name, promotes in (("red", 0), ("blue", 1)):
            self.vrfs.namespaces[name].sysctl("net.ipv4.conf.all.promote_secondaries", promotes)
            self.vrfs.namespaces[name].sysctl("net.ipv4.conf.a0.promote_secondaries", promotes)
        self.expect_everything()
        with self.subTest("the number of rows is counted at the interval of the configuration"):
            rows = str(len(kernel_tables(blue)[ROUTE]))
            blue.ip("route add 10.11.0.0/16 via 10.0.0.9")
            self.expect_everything()
            number = f"{IP}.24.3.0"
            self.assertNotEqual(client.get(number)[0].value, str(int(rows) + 1))
            self.reconfigure("quorinRouteCountInterval 1")
            eventually(lambda: client.get(number)[0].value == str(int(rows) + 1), "the number does not follow")
        for what, name, lines in CHANGES:
            with self.subTest(what):
                namespace = self.vrfs.namespaces[name]
                before = kernel_tables(namespace)
                namespace.ip(*lines)
                self.assertNotEqual(kernel_tables(namespace), before, "the step changes nothing")
                self.expect_everything()

    def test_random_changes(self):
        seed = random.randrange(1 << 32)
        choice = random.Random(seed)

        def line(verb, kind, number, interface):
            protocol = (4, 3, 186, 188, 187, 189, 11, 42, 190, 196)[number % 10]
            ipv4 = f"172.{16 + number // 256}.{number % 256}.0/{24 + number % 7} via 10.0.0.9 proto {protocol}"
            ipv6 = f"2001:db8:{number:x}::/{48 + number % 2 * 8} via 2001:db8::9 proto {protocol}"
            return {"address": f"addr {verb} 10.1.{number}.1/32 dev {interface}", "IPv4": f"route {verb} {ipv4}",
                    "IPv6": f"route {verb} {ipv6}",
                    "neighbour": f"neigh {verb} 10.0.1.{number} lladdr 02:00:00:00:00:05 dev {interface} nud stale"}[kind]

        red = self.vrfs.add("red")
        interfaces = ["a0", "a1", "a2", "a3"]
        for interface in interfaces:
            red.add_interface(interface)
        red.ip("addr add 10.0.0.1/24 dev a0", "addr add 2001:db8::1/64 dev a0 nodad")
        kinds = {"address": 150, "IPv4": 900, "IPv6": 400, "neighbour": 100}
        present = {(kind, number): choice.choice(interfaces) for kind in ("IPv4", "IPv6") for number in range(kinds[kind])}
        red.ip(*(line("add", *what, interface) for what, interface in present.items()))
        self.start_system()
        with self.subTest(seed=seed):
            self.expect_context("red")
            for _ in range(6):
                lines = []
                for _ in range(700):
                    kind = choice.choice(list(kinds))
                    what = (kind, choice.randrange(kinds[kind]))
                    verb = "del" if what in present else "add"
                    if verb == "add":
                        present[what] = choice.choice(interfaces)
                    lines.append(line(verb, *what, present[what] if verb == "add" else present.pop(what)))
                red.ip(*lines)
                self.expect_context("red")
            red.ip("neigh flush all nud stale", "link set a0 down")
            self.expect_everything()

    def test_interface_moves_from_vrf_to_vrf(self):
        red, blue = self.vrfs.add("red"), self.vrfs.add("blue")
        self.start_system()
        red.ip("link add m0 type veth peer name m0-p")
        places = [red, blue, self.namespace, red, self.namespace, blue]
        for at, place in enumerate(places):
            if at > 0:
                places[at - 1].ip(f"link set m0 netns {place.name}")
            place.ip("link set m0 up", "addr add 10.3.0.1/24 dev m0", "neigh add 10.3.0.9 lladdr 02:00:00:00:00:09 dev m0")
            with self.subTest(at=at):
                self.expect_everything()

    def test_nothing_can_be_set(self):
        red = self.add_vrf("red", 0x11)
        self.populate(self.namespace, 0x10)
        self.start_system()
        self.expect_everything()
        letters = {"INTEGER": "i", "Gauge32": "u", "Timeticks": "t", "IpAddress": "a", "OID": "o", "Hex-STRING": "x",
                   "STRING": "s", "BITS": "x"}
        writer = self.community("w-red")
        for client, entries in ((writer, (*IP_TABLES, ROUTE)), (self.user("red"), IP_TABLES),
                                (self.client, (*IP_TABLES, ROUTE, VRF, VRF_IF))):
            columns = {}
            for entry in entries:
                for bind in client.bulk_walk(entry):
                    columns.setdefault((entry, bind.oid[len(entry) + 1:].split(".")[0]), bind)
            self.assertEqual({entry for entry, _ in columns}, set(entries))
            for (entry, column), bind in columns.items():
                value = str(ticks(bind)) if bind.type == "Timeticks" else bind.value or "x"
                with self.subTest(entry=entry, column=column):
                    self.assertEqual(client.set_error(bind.oid, letters[bind.type], value), "notWritable")
        for new_row in (f"{PHYSICAL}.8.{red.if_index('a0')}.1.4.10.0.0.99", f"{ADDRESS}.10.1.4.10.0.0.99"):
            self.assertEqual(writer.set_error(new_row, "i", "4"), "notWritable")
        self.expect_everything()

    def test_forwarding_follows_the_kernel(self):
        red = self.vrfs.add("red")
        self.start_system()
        ipv4, ipv6 = "net.ipv4.ip_forward", "net.ipv6.conf.all.forwarding"
        for namespace, context, name, oid in ((self.namespace, None, ipv4, IP_FORWARDING), (red, "red", ipv4, IP_FORWARDING),
                                              (self.namespace, None, ipv6, IPV6_IP_FORWARDING), (red, None, ipv6, None)):
            for is_on in (True, False, True, False):
                with self.subTest(context=context, name=name, is_on=is_on):
                    namespace.sysctl(name, int(is_on))
                    if oid:  # IPv6's is in the default context alone
                        self.expect(lambda: self.client_of(context).get(oid)[0].value, lambda: "1" if is_on else "2", name)
                    self.expect_vrf_tables()

    def test_route_tables_can_be_disabled(self):
        self.configure("quorinDisableObjects route-tables")
        self.populate(self.namespace, 0x10)
        self.start_system()
        self.assertEqual([bind for bind in self.client.bulk_walk(f"{IP}.24") if bind.exists], [])
        self.agent.wait_for_output("init_IpForward skipping scalar ipCidrRouteNumber because route-tables are disabled.")
        self.agent.wait_for_output("initialize_table_ipCidrRouteTable is a noop because route-tables are disabled.")

    def test_route_distinguishers_are_those_of_the_configuration(self):
        def configure(name, distinguisher):
            return self.write_file("mirror.yaml", f'vrfs: {{{name}: {{routeDistinguisher: "{distinguisher}"}}, '
                                   'none: {routeDistinguisher: "1:1"}}\n')

        self.vrfs.add("red")
        self.vrfs.add("blue")
        self.start_system("--config", configure("red", "65000:1"))
        self.expect_vrf_tables(distinguishers={"red": "65000:1"})
        configure("blue", "192.0.2.1:7")
        self.expect_vrf_tables(distinguishers={"blue": "192.0.2.1:7"})

    def test_kinds_of_static_routes_are_as_configured_or_else_as_in_the_kernel(self):
        red = self.vrfs.add("red")
        configured, routes, entries = {}, [], []
        for number, (kind, facts) in enumerate({STATIC_ROUTE: "", NOT_PERSISTENT: ", persistent: false",
                                                GROUP: ", preference: 1, nexthopGroup: true"}.items(), 1):
            for prefix, hop in (f"198.51.{number}.0/24", "10.0.0.9"), (f"2001:db8:{number}::/48", "2001:db8::9"):
                configured[ipaddress.ip_network(prefix)] = kind
                protocol = {STATIC_ROUTE: "boot", GROUP: "196"}.get(kind, "static")
                routes.append(f"route add {prefix} via {hop} metric 7 proto {protocol}")
                entries.append(f"{{prefix: '{prefix}'{facts}}}")
        for namespace in (self.namespace, red):
            namespace.add_interface("a0", "10.0.0.1/24", "2001:db8::1/64")
            namespace.ip(*routes)
        self.start_system("--config", self.write_file(
            "mirror.yaml", f"vrfs: {{default: {{staticRoutes: [{', '.join(entries)}]}}}}\n"))
        self.expect(lambda: walk_tables(self.client, *FIB_TABLES),
                    lambda: fib_tables(self.namespace, configured=configured), "as configured")
        self.expect_context("red")
        with self.subTest("a route keeps the kind as which it was first counted"):
            before = fib_tables(red)
            red.ip(*(line.replace("add", "replace").replace("static", "boot") for line in routes))
            self.assertNotEqual(fib_tables(red)[BY_TYPE], before[BY_TYPE])
            red.ip("route add 198.51.9.0/24 via 10.0.0.9 proto bgp")  # to wait for
            by_type = {**before[BY_TYPE], (1, 14): {2: "1"}}
            self.expect(lambda: walk_tables(self.client_of("red"), BY_TYPE), lambda: {BY_TYPE: by_type}, "as first counted")

    def test_neighbours_on_management_interfaces_do_not_count(self):
        self.namespace.add_interface("a0", "10.0.0.1/24")
        self.namespace.ip("neigh add 10.0.0.7 lladdr 02:00:00:00:00:07 dev a0")
        self.start_system()
        self.expect_context()
        self.reconfigure("quorinManagementInterfaces a0")
        expected = fib_tables(self.namespace)[SUMMARY]
        expected[1,] = {2: str(int(expected[1,][2]) - 1)}
        self.expect(lambda: walk_tables(self.client, SUMMARY), lambda: {SUMMARY: expected}, "without it")


if __name__ == "__main__":
    main()
