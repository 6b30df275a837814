"""The FIB statistics tables against counts made from `ip -j route` and `ip -j neigh`."""

import collections
import ipaddress
import random
import signal

from harness.case import main
from harness.tables import RESOLVED, read_tables
from harness.vrfcase import VrfCase

FIB = "1.3.6.1.4.1.32473.3.23.1"
SUMMARY, BY_TYPE, BY_LENGTH = ENTRIES = tuple(f"{FIB}.{number}.1" for number in (1, 2, 3))
OTHER, CONNECTED, STATIC, RIP, ISIS, OSPF, BGP, NOT_PERSISTENT, GROUP, ATTACHED = 1, 2, 3, 8, 9, 13, 14, 201, 202, 203
TYPES = {"kernel": CONNECTED, "boot": NOT_PERSISTENT, "static": STATIC, "rip": RIP, "isis": ISIS, "ospf": OSPF, "bgp": BGP,
         "190": RIP, "ripng": RIP, "196": STATIC}  # of FRR, whose package gives them names
PUBLISHED = {"unicast", "blackhole", "unreachable", "prohibit"}


def network_of(route, version):
    default = "0.0.0.0/0" if version == 4 else "::/0"
    return ipaddress.ip_network(default if route["dst"] == "default" else route["dst"])


def counted(namespace):
    """(version, prefix) -> type, of every prefix that counts."""
    prefixes = {}
    for version in (4, 6):
        for route in sorted(namespace.ip_json(f"-{version}", "route", "show", "table", "main"),
                            key=lambda route: -route.get("metric", 0)):
            if route.get("type", "unicast") in PUBLISHED and not {"dead", "linkdown"} & set(route["flags"]):
                kind = TYPES.get(route.get("protocol", "boot"), OTHER)
                is_group = "nhid" in route and route.get("protocol", "boot") in ("static", "boot")
                prefixes[version, network_of(route, version)] = GROUP if is_group else kind
    for entry in namespace.ip_json("neigh", "show", "nud", "all"):
        address = ipaddress.ip_address(entry["dst"])
        is_counted = address.version == 4 or not address.is_link_local
        if is_counted and RESOLVED & set(entry["state"]) and len(entry.get("lladdr", "")) == 17:
            prefixes.setdefault((address.version, ipaddress.ip_network(address)), ATTACHED)
    return prefixes


def expected_tables(namespace, configured=()):
    tables = {entry: collections.Counter() for entry in ENTRIES}
    for (version, network), kind in (counted(namespace) | dict(configured)).items():
        family = 1 if version == 4 else 2
        tables[SUMMARY][family,] += 1
        tables[BY_TYPE][family, kind] += 1
        tables[BY_LENGTH][family, network.prefixlen] += 1
    return {entry: {index: {2: str(count)} for index, count in rows.items()} for entry, rows in tables.items()}


class FibStatsTest(VrfCase):
    communities = ("red",)

    def expect_counts(self, client, namespace, what, configured=()):
        self.expect(lambda: read_tables(client.bulk_walk(FIB), ENTRIES),
                    lambda: expected_tables(namespace, configured), what)

    def lines(self, verb, numbers):
        """Mixed routes, one for each number."""
        protocols = (4, 3, 186, 188, 187, 189, 11, 42, 190, 196)  # ip mixes them up when some are names
        lines = []
        for number in numbers:
            protocol = protocols[number % len(protocols)]
            if number % 3 == 0:
                prefix, hop = f"2001:db8:{number:x}::/{48 + number % 2 * 8}", "2001:db8::9"
            else:
                prefix, hop = f"172.{16 + number // 256 % 16}.{number % 256}.0/{24 + number % 7}", "10.0.0.9"
            lines.append(f"route {verb} {prefix} via {hop} proto {protocol}")
        return lines

    def test_counts_of_each_vrf_follow_the_kernel(self):
        red = self.vrfs.add("red")
        # A host with a route and a neighbour, and one that is a neighbour on two interfaces.
        hosts = ["neigh {} 10.0.0.5 lladdr 02:00:00:00:00:05 dev a0", "neigh {} 10.0.0.6 lladdr 02:00:00:00:00:06 dev b0"]
        for namespace in (self.namespace, red):
            namespace.add_interface("a0", "10.0.0.1/24", "2001:db8::1/64")
            namespace.add_interface("b0")
            namespace.ip_batch(["route add 10.0.0.5/32 dev a0 proto static", *(line.format("add") for line in hosts),
                                "neigh add 10.0.0.6 lladdr 02:00:00:00:00:06 dev a0"])
        red.ip_batch(self.lines("add", range(2000)))
        red.ip_batch(["route add blackhole 198.51.100.0/24", "route add default via 10.0.0.9 metric 7",
                      "route add default via 10.0.0.8 metric 5 proto bgp",
                      "nexthop add id 1 via 10.0.0.9 dev a0", "nexthop add id 2 via 2001:db8::9 dev a0",
                      "route add 198.51.101.0/24 nhid 1", "route add 2001:db8:ffff::/48 nhid 2 proto static",
                      "neigh add 10.0.0.7 lladdr 02:00:00:00:00:07 dev a0",
                      "neigh add 2001:db8::7 lladdr 02:00:00:00:00:07 dev a0",
                      "neigh add fe80::7 lladdr 02:00:00:00:00:07 dev a0"])
        self.start_system()
        client = self.community("c-red")
        self.wait_for_context(client)
        self.expect_counts(client, red, "at the start")
        self.expect_counts(self.default, self.namespace, "the default VRF's")
        for context, namespace in (client, red), (self.default, self.namespace):
            namespace.ip_batch([line.format("del") for line in hosts])
            namespace.ip("neigh", "add", "10.0.0.200", "lladdr", "02:00:00:00:00:05", "dev", "a0")  # to wait for
            self.expect_counts(context, namespace, "the hosts count as before")
        self.assertGreater(len(expected_tables(red)[BY_TYPE]), 16)

        numbers = random.Random(5).sample(range(2000), 1500)
        for at in range(0, len(numbers), 500):
            red.ip_batch(self.lines("del", numbers[at:at + 500]))
            self.expect_counts(client, red, "routes are gone")
        red.ip_batch(self.lines("add", numbers[:700]))
        red.ip_batch([f"neigh add 10.0.0.{n} lladdr 02:00:00:00:00:{n:02x} dev a0 nud stale" for n in range(20, 99)])
        self.expect_counts(client, red, "routes and neighbours have come")
        red.ip("neigh", "flush", "all", "nud", "stale")
        red.ip("link", "set", "a0", "down")
        self.expect_counts(client, red, "the link is down")
        self.expect_counts(self.default, self.namespace, "nothing of red's in the default VRF")

    def test_kinds_of_static_routes_are_as_configured_or_else_as_in_the_kernel(self):
        red = self.vrfs.add("red")
        configured, routes, entries = {}, [], []
        for number, (kind, facts) in enumerate({STATIC: "", NOT_PERSISTENT: ", persistent: false",
                                                GROUP: ", preference: 1, nexthopGroup: true"}.items(), 1):
            for prefix, hop in (f"198.51.{number}.0/24", "10.0.0.9"), (f"2001:db8:{number}::/48", "2001:db8::9"):
                network = ipaddress.ip_network(prefix)
                configured[network.version, network] = kind
                protocol = {STATIC: "boot", GROUP: "196"}.get(kind, "static")
                routes.append(f"route add {prefix} via {hop} metric 7 proto {protocol}")
                entries.append(f"{{prefix: '{prefix}'{facts}}}")
        for namespace in (self.namespace, red):
            namespace.add_interface("a0", "10.0.0.1/24", "2001:db8::1/64")
            namespace.ip_batch(routes)
        with open(f"{self.directory}/mirror.yaml", "w", encoding="utf-8") as file:
            file.write(f"vrfs: {{default: {{staticRoutes: [{', '.join(entries)}]}}}}\n")
        self.mirror = self.start_mirror("--config", file.name)
        self.agent = self.start_agent()
        self.wait_until_complete()
        client = self.community("c-red")
        self.wait_for_context(client)
        self.expect_counts(self.default, self.namespace, "as configured", configured)
        self.expect_counts(client, red, "as in the kernel")
        before = expected_tables(red)
        red.ip_batch([line.replace("add", "replace").replace("static", "boot") for line in routes])
        red.ip("route", "add", "198.51.9.0/24", "via", "10.0.0.9")
        self.assertEqual(before[BY_TYPE][1, STATIC], {2: "2"})
        before[BY_TYPE][1, NOT_PERSISTENT] = {2: "2"}
        before[SUMMARY][1,] = {2: str(int(before[SUMMARY][1,][2]) + 1)}
        before[BY_LENGTH][1, 24] = {2: str(int(before[BY_LENGTH][1, 24][2]) + 1)}
        self.expect(lambda: read_tables(client.bulk_walk(FIB), ENTRIES), lambda: before, "as first counted")

    def test_neighbours_on_management_interfaces_do_not_count(self):
        self.namespace.add_interface("a0", "10.0.0.1/24")
        self.namespace.ip("neigh", "add", "10.0.0.7", "lladdr", "02:00:00:00:00:07", "dev", "a0")
        self.start_system()
        self.expect_counts(self.default, self.namespace, "with the neighbour")
        with open(self.configuration, "a", encoding="utf-8") as file:
            file.write("quorinManagementInterfaces a0\n")
        self.agent.signal(signal.SIGHUP)
        expected = expected_tables(self.namespace)
        del expected[BY_TYPE][1, ATTACHED], expected[BY_LENGTH][1, 32]
        expected[SUMMARY][1,] = {2: str(int(expected[SUMMARY][1,][2]) - 1)}
        self.expect(lambda: read_tables(self.default.bulk_walk(FIB), ENTRIES), lambda: expected, "without it")


if __name__ == "__main__":
    main()
