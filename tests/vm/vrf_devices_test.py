"""VRF devices of the default namespace as VRFs: every table in every context, whatever is done to them."""

from device_case import DeviceCase
from harness import eventually, main
from harness.interfaces import interface_tables, still
from harness.kernel import kernel_tables
from harness.snmp import Client
from harness.tables import ADDR, IF_NUMBER, INTERFACE_TABLES, IP, ROUTE, walk_tables

MANY = [f"many{number}" for number in range(20)]
# The same in each VRF: addresses, prefixes, neighbours and routes that overlap. Lines for `ip -batch`.
CONTENTS = ("addr add 10.0.0.1/24 dev {0}", "addr add 10.0.0.2/24 dev {0}", "addr add 2001:db8::1/64 dev {0} nodad",
            "neigh add 10.0.0.7 lladdr 02:00:00:00:{1:02x}:07 dev {0}",
            "neigh add 2001:db8::7 lladdr 02:00:00:00:{1:02x}:07 dev {0} nud stale",
            "route replace 10.1.0.0/16 via 10.0.0.9 table {2} proto static",
            "route replace blackhole 10.2.0.0/16 table {2}",
            "route replace default via 10.0.0.8 table {2} proto bgp",
            "route replace 2001:db8:1::/48 via 2001:db8::9 table {2}",
            "route replace 10.3.0.0/16 table {2} nexthop via 10.0.0.9 nexthop via 10.0.0.10 weight 3")


class VrfDevicesTest(DeviceCase):
    communities = ("red", "blue", "green", "ns", "manager-red", "manager-blue", *MANY)

    def fill(self, interface, mark, table="main"):
        self.namespace.ip(*(line.format(interface, mark, table) for line in CONTENTS))

    def start_with_two(self):
        """One made before the programs, one after, with the same in both and in the default VRF; and a namespace."""
        red = self.add_device("red", 1001, "r0")
        self.namespace.add_interface("d0")
        for interface, mark, table in (("d0", 1, "main"), ("r0", 2, 1001)):
            self.fill(interface, mark, table)
        self.vrfs.add("ns", "link add r0 type veth peer name r1", "link set r0 up", "link set r1 up",
                      "addr add 10.0.0.1/24 dev r0")
        self.start_system()
        blue = self.add_device("blue", 1002, "b0")
        self.fill("b0", 3, 1002)
        self.expect_everything()
        return red, blue

    def test_interfaces_and_devices_change(self):
        self.start_with_two()
        self.namespace.add_interface("m0", "10.5.0.1/24", "2001:db8:5::1/64")
        steps = (
            ("enslaved", ["link set m0 master red"]),
            ("moved", ["link set m0 master blue"]),
            ("with an address again", ["addr add 2001:db8:6::1/64 dev m0 nodad",
                                       "neigh add 10.5.0.9 lladdr 02:00:00:00:00:09 dev m0"]),
            ("down", ["link set m0 down"]),
            ("without addresses", ["addr flush dev m0"]),
            ("renamed", ["link set m0 name m1", "link set m1 up", "addr add 10.5.0.1/24 dev m1"]),
            ("released", ["link set m1 nomaster"]),
            ("deleted while enslaved", ["link set m1 master red", "link del m1"]),
            ("an address at the device itself", ["addr add 10.6.0.1/32 dev red", "addr add 2001:db8:6::6/128 dev red"]),
            ("device down", ["link set red down"]),
            ("device up", ["link set red up", "route replace 10.9.0.0/16 via 10.0.0.9 table 1001"]),
        )
        for what, lines in steps:
            with self.subTest(what):
                self.namespace.ip(*lines)
                self.expect_everything()
        with self.subTest("device renamed"):
            self.namespace.ip("link set blue down", "link set blue name green", "link set green up")
            del self.devices["blue"]
            self.devices["green"] = self.device_vrf("green")
            self.expect_everything()
            self.expect_no_context("blue")
        with self.subTest("deleted, and made again with another table"):
            self.remove_device("green")
            self.expect_everything()
            self.expect_no_context("green")
            self.add_device("green", 1005)
            self.namespace.ip("link set b0 master green", "route add 10.8.0.0/16 via 10.0.0.9 table 1005")
            self.expect_everything()
        with self.subTest("the programs started again"):
            for program in (self.agent, self.mirror):
                self.assertEqual(program.stop(), 0)
            self.start_system()
            self.expect_everything()

    def test_routes_leak_between_vrfs(self):
        red, _ = self.start_with_two()
        for client, vrf in ((self.client, self.default_vrf), (self.client_of("red"), red)):
            rows = str(len(kernel_tables(vrf)[ROUTE]))
            eventually(lambda: client.get(f"{IP}.24.3.0")[0].value == rows, f"ipCidrRouteNumber is not {rows}")
        self.namespace.ip(
            "route add 10.20.0.0/16 dev b0 table 1001", "route add 10.21.0.0/16 via 10.0.0.9 dev b0 onlink table 1001",
            "route add 10.22.0.0/16 dev d0 table 1002", "route add 10.23.0.0/16 dev red",
            "route add 10.24.0.0/16 dev blue table 1001", "route add 2001:db8:20::/48 dev b0 table 1001",
            "nexthop add id 1 via 10.0.0.9 dev r0", "nexthop add id 2 via 10.0.0.10 dev b0",
            "nexthop add id 3 group 1/2", "route add 10.25.0.0/16 nhid 3 table 1001", "route add 10.25.0.0/16 nhid 1",
            "route add 10.26.0.0/16 table 1002 nexthop via 10.0.0.9 dev b0 nexthop dev red")
        self.expect_everything()
        self.namespace.ip("link set b0 nomaster")
        self.expect_everything()
        with self.subTest("two devices with one table have its routes, and one keeps them when the other goes"):
            self.add_device("green", 1001, "g0")
            self.namespace.ip("addr add 10.7.0.1/24 dev g0", "route add 10.8.0.0/16 via 10.7.0.9 table 1001")
            self.expect_everything()
        self.remove_device("red")
        self.expect_everything()
        self.expect_no_context("red")

    def expect_interfaces(self, *names):
        """Each VRF device and what it is the master of are the interfaces of its context, all others the default's."""
        def of_context(name):
            links = self.namespace.ip_json("-d", "-s", "-s", "link")
            devices = {link["ifname"] for link in links if link.get("linkinfo", {}).get("info_kind") == "vrf"}
            owners = [link["ifname"] if link["ifname"] in devices else link.get("master") for link in links]
            return still(interface_tables(self.namespace, 0, [
                link for link, owner in zip(links, owners) if (owner if owner in devices else None) == name]))

        for name in names:
            self.expect(lambda name=name: still(walk_tables(self.client_of(name), *INTERFACE_TABLES, IF_NUMBER)),
                        lambda name=name: of_context(name), f"interfaces of {name}")

    def test_interfaces_over_others(self):
        """VLANs, a bond and a bridge, with parents, members and ports in the same VRF and in others."""
        self.add_device("red", 1001, "r0")
        self.start_system()
        self.add_device("blue", 1002, "b0")
        steps = (
            ("made", ["link add bond0 type bond mode active-backup", "link add link r0 name r0.10 type vlan id 10",
                      "link add link r0 name r0.20 type vlan id 20", "link add br0 type bridge",
                      *(f"link add {name} type dummy" for name in ("p0", "p1", "p2"))]),
            ("joined", ["link set p0 master bond0", "link set p1 master bond0", "link set p2 master br0",
                        "link set r0.10 master red", "link set r0.20 master blue", "link set bond0 master red",
                        *(f"link set {name} up" for name in ("bond0", "br0", "p2", "r0", "r0.10"))]),
            ("changed", ["link set p1 nomaster", "link set r0.20 up", "link set r0 down", "link set br0 master blue",
                         "link set bond0 alias \"to the core\"", "link set p2 mtu 9000"]),
            ("moved", ["link set bond0 master blue", "link set r0 up", "link add link bond0 name v7 type vlan id 7",
                       "link set v7 master red", "link set p2 nomaster", "link set red mtu 1400"]),
            ("deleted", ["link del bond0", "link del br0", "link del r0.10"]))
        for what, lines in steps:
            with self.subTest(what):
                self.namespace.ip(*lines)
                self.expect_interfaces(None, "red", "blue")
        self.expect_everything()

    def test_twenty_at_once(self):
        self.start_system()
        for again in range(2):
            with self.subTest(again=again):
                self.namespace.ip(*(line for n, name in enumerate(MANY) for line in (
                    f"link add {name} type vrf table {2000 + n}", f"link set {name} up", f"link add i{n} type dummy",
                    f"link set i{n} master {name}", f"link set i{n} up",
                    *(text.format(f"i{n}", n, 2000 + n) for text in CONTENTS))))
                self.devices = {name: self.device_vrf(name) for name in MANY}
                self.expect_everything()
                self.namespace.ip(*(f"link del {name}" for name in (*MANY, *(f"i{n}" for n in range(len(MANY))))))
                self.devices = {}
                self.expect_everything()
                self.expect_no_context(MANY[-1])

    def test_name_of_a_namespace(self):
        """The namespace is the VRF; what has the device as its master belongs to none, as long as that is so."""
        red = self.add_device("red", 1001, "r0")
        self.fill("r0", 2, 1001)
        self.vrfs.add("red", "link add n0 type veth peer name n1", "link set n0 up", "addr add 10.0.0.1/24 dev n0")
        self.start_system()
        self.expect_everything()
        self.vrfs.remove("red")
        self.expect_everything()
        self.assertIn((10, 0, 0, 1), self.expected(red, "red")[ADDR])

    def test_agent_listens_inside_a_vrf(self):
        """red and blue have the same address; each has a manager behind it, in a namespace of its own."""
        managers = {}
        for number, name in enumerate(("red", "blue")):
            self.add_device(name, 1001 + number)
            managers[name] = self.vrfs.add(f"manager-{name}", f"link add m-{name} type veth peer name m0",
                                           "link set m0 up", "addr add 10.0.0.9/24 dev m0")
            managers[name].ip(f"link set m-{name} netns {self.namespace.name}")
            self.namespace.ip(f"link set m-{name} master {name} up", f"addr add 10.0.0.1/24 dev m-{name}")
        self.start_mirror()
        self.start_agent(listen="udp:10.0.0.1@red:1161,udp:127.0.0.1:1161")
        self.wait_until_complete()
        clients = {name: Client(manager, "udp:10.0.0.1:1161", self.client.access)
                   for name, manager in managers.items()}
        eventually(clients["red"].answers, "red's manager gets no answer")
        self.assertFalse(clients["blue"].answers())
        self.expect_everything()


if __name__ == "__main__":
    main(3000)
