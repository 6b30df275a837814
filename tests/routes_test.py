"""ipCidrRouteTable, in the context of every VRF, is row for row what the kernel's main table has in its namespace."""

import random
import signal

from harness import PATIENCE, background, eventually, main
from harness.routes import ROUTE, kernel_route_table, without_preference
from harness.tables import IP, read_tables
from harness.vrfcase import VrfCase

INTERFACES = {"a0": "10.0.0.1/24", "b0": "10.0.1.1/24", "c0": "10.0.2.1/30"}
KINDS = (
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
    "route add local 10.8.0.0/24 dev a0 table main",                             # none of ours
)
CHANGES = (
    ("replaced by another gateway", ["route replace 10.1.0.0/16 via 10.0.1.77"]),
    ("replaced by several next hops", ["route replace 10.2.0.0/16 nexthop via 10.0.0.3 nexthop via 10.0.1.3"]),
    ("a next hop less", ["route replace 10.3.0.0/16 nexthop via 10.0.0.9 nexthop via 10.0.0.10"]),
    ("withdrawn", ["route del 10.1.1.0/24", "route del blackhole 10.4.0.0/16"]),
    ("the best of two goes", ["route del 10.6.0.0/16 metric 5"]),
    ("a better one comes", ["route add 10.6.0.0/16 via 10.0.1.8 metric 1"]),
    ("next-hop objects deleted", ["nexthop del id 4", "nexthop del id 1"]),
    ("interface down", ["link set b0 down"]),
    ("and up", ["link set b0 up", "route replace 10.2.0.0/16 via 10.0.1.3"]),
    ("interface renamed", ["link set c0 down", "link set c0 name d0", "link set d0 up",
                           "route add 10.10.0.0/16 via 10.0.2.2"]),
    ("interface deleted", ["link del a0"]),
    ("everything flushed", ["route flush table main"]),
)


class RoutesTest(VrfCase):
    communities = ("red", "blue")

    def populate(self, namespace):
        for name, address in INTERFACES.items():
            namespace.add_interface(name, address)

    def table(self, client):
        return without_preference(read_tables(client.bulk_walk(ROUTE), [ROUTE]))

    def expect_routes(self, client, namespace, name=None):
        """The context's table is the kernel's; returns it."""
        self.expect(lambda: self.table(client), lambda: kernel_route_table(namespace, self.vrf_id(name) if name else 0),
                    f"routes of {name or 'the default VRF'}")

    def test_every_kind_of_route_in_every_vrf(self):
        self.populate(self.namespace)
        red = self.vrfs.add("red")
        self.populate(red)
        self.namespace.ip_batch(KINDS)
        red.ip_batch(reversed(KINDS[:3]))
        self.start_system()
        blue = self.vrfs.add("blue")
        self.populate(blue)
        blue.ip_batch(KINDS[3:])
        everyone = ((self.default, self.namespace, None), (self.community("c-red"), red, "red"),
                    (self.user("blue"), blue, "blue"))
        for client, namespace, name in everyone:
            self.wait_for_context(client)
            self.expect_routes(client, namespace, name)
        with self.subTest("the rows themselves, as far as they do not come from the kernel's words"):
            rows = self.table(self.default)[ROUTE]
            ecmp = [index[9:] for index in rows if index[:8] == (10, 3, 0, 0, 255, 255, 0, 0)]
            self.assertEqual(ecmp, [(10, 0, 0, 9), (10, 0, 0, 10), (10, 0, 1, 9)])
            blackhole = rows[(10, 4, 0, 0, 255, 255, 0, 0, 0, 0, 0, 0, 0)]
            self.assertEqual((blackhole[5], blackhole[6]), ("0", "3"))
            self.assertNotIn((10, 8, 0, 0), {index[:4] for index in rows})
        with self.subTest("GET, GETNEXT and GETBULK say the same"):
            walked = self.default.walk(ROUTE)
            self.assertEqual(self.default.bulk_walk(ROUTE), walked)
            self.assertEqual(self.default.get(*(bind.oid for bind in walked[-60:])), walked[-60:])
        with self.subTest("a VRF that is gone takes its routes along"):
            self.vrfs.remove("red")
            eventually(lambda: not any(bind.exists for bind in everyone[1][0].bulk_walk(ROUTE)), "red still answers")
            self.expect_routes(*everyone[2])

    def test_changes_while_it_runs(self):
        blue = self.vrfs.add("blue")
        self.populate(blue)
        with open(self.configuration, encoding="utf-8") as file:
            access = file.read()
        self.write_configuration(access + "quorinRouteCountInterval 86400\n")
        self.start_system()
        client = self.community("c-blue")
        self.wait_for_context(client)
        for line in KINDS:
            blue.ip_batch([line])
        self.expect_routes(client, blue, "blue")
        with self.subTest("the number of rows is counted at the start, and then at the interval of the configuration"):
            rows = len(self.table(client)[ROUTE])
            number = f"{IP}.24.3.0"
            self.assertIn(client.get(number)[0].value, {str(len(INTERFACES)), str(rows)})
            self.write_configuration(access + "quorinRouteCountInterval 1\n")
            self.agent.signal(signal.SIGHUP)
            eventually(lambda: client.get(number)[0].value == str(rows), "the number of rows does not follow")
        for what, lines in CHANGES:
            with self.subTest(what):
                blue.ip_batch(lines)
                self.expect_routes(client, blue, "blue")

    def test_disabled(self):
        self.write_configuration("rwcommunity private 127.0.0.1\nquorinDisableObjects route-tables\n")
        self.populate(self.namespace)
        self.start_system()
        self.assertEqual([bind for bind in self.client.bulk_walk(f"{IP}.24") if bind.exists], [])
        self.assertIn("init_IpForward skipping scalar ipCidrRouteNumber because route-tables are disabled.",
                      self.agent.output())
        self.assertIn("initialize_table_ipCidrRouteTable is a noop because route-tables are disabled.",
                      self.agent.output())

    def test_walks_while_routes_come_and_go(self):
        self.populate(self.namespace)
        self.namespace.ip_batch([f"route add 20.0.{n}.0/24 via 10.0.0.9" for n in range(200)])
        self.start_system()
        self.expect_routes(self.default, self.namespace)
        chance = random.Random(5)

        def change():
            numbers = chance.sample(range(1, 200, 2), 20)
            self.namespace.ip_batch([f"route del 20.0.{n}.0/24" for n in numbers])
            self.namespace.ip_batch([f"route add 20.0.{n}.0/24 via 10.0.{n % 2}.9" for n in numbers])

        with background(change):
            for _ in range(8):
                rows = read_tables(self.default.bulk_walk(ROUTE), [ROUTE], may_be_torn=True)[ROUTE]
                self.assertLessEqual({(20, 0, n, 0) for n in range(0, 200, 2)}, {index[:4] for index in rows})
        self.expect_routes(self.default, self.namespace)

    def test_mirror_killed_while_it_loads(self):
        self.populate(self.namespace)
        count = 100_000
        self.namespace.ip_batch([f"route add {20 + (n >> 16)}.{n >> 8 & 255}.{n & 255}.0/24 via 10.0.{n % 2}.{n % 7 + 2}"
                                 for n in range(count)])
        mirror = self.start_mirror()
        self.start_agent()
        self.wait_for_context(self.default)
        eventually(lambda: self.default.get_next(f"{ROUTE}.1.20")[0].oid.startswith(f"{ROUTE}.1.20."), "no route comes")
        mirror.signal(signal.SIGKILL)
        mirror.wait()
        self.namespace.ip("route", "del", "20.0.5.0/24")
        self.start_mirror()

        def served():
            return {bind.oid: bind.value for bind in self.default.bulk_walk(f"{ROUTE}.4")}

        def expected():
            rows = kernel_route_table(self.namespace)[ROUTE]
            return {f"{ROUTE}.4." + ".".join(map(str, index)): row[4] for index, row in rows.items()}

        self.expect_equal_soon(served, expected())

    def expect_equal_soon(self, served, expected):
        last = {}

        def same():
            last["served"] = served()
            return last["served"] == expected

        eventually(same, lambda: f"{len(last['served'])} rows served, {len(expected)} expected, first difference "
                   f"{min(last['served'].items() ^ expected.items())}", timeout=3 * PATIENCE, interval=1)


if __name__ == "__main__":
    main()
