"""The tables of IF-MIB are, row for row, what the kernel says of the interfaces in each VRF's namespace."""

import random

from harness import SystemCase, main
from harness.interfaces import expect_interfaces, interface_tables
from harness.tables import IF_TABLE, INTERFACE_TABLES, walk_tables

RED, BLUE = "red", "blue"
# Interfaces of each kind that kernels without further modules have, some of them over others.
LINKS = (
    "link add a0 type veth peer name a0-p", "link set a0 up", "link set a0-p up", "addr add 10.0.0.1/24 dev a0",
    "link add i0 type ifb", "link set i0 mtu 9000 alias \"uplink to core 1\" up", "link add i1 type ifb",
    "link add br0 type bridge", "link set a0-p master br0", "link set br0 up", "link set i0 promisc on",
    "link add vx0 type vxlan id 10 dstport 4789 dev i0", "link add vx1 type vxlan id 11 dstport 4789 dev i0",
    "link add vx2 type vxlan id 12 dstport 4789 dev vx0", "link set vx0 up", "tuntap add t0 mode tun",
    "link set i1 alias " + "x" * 90)


def random_lines(choice):
    """The commands of one change."""
    n = choice.randrange(6)
    over, bridge = choice.choice(("i0", "i1", "a0")), choice.choice(("br0", "br1"))
    return choice.choice((
        [f"link add x{n} type vxlan id {100 + n} dstport 4789 dev {over}"], [f"link add x{n} type ifb"],
        [f"link del x{n}"], [f"link del x{n}"], [f"link add {bridge} type bridge"], [f"link del {bridge}"],
        [f"link set x{n} master {bridge}"], [f"link set x{n} nomaster"],
        [f"link set x{n} {choice.choice(('up', 'down'))}"], [f"link set {over} {choice.choice(('up', 'down', 'up'))}"],
        [f"link set x{n} alias \"{'b' * n}\""], [f"link set x{n} mtu {1000 + n}"],
        [f"link set x{n} address 02:00:00:00:00:{n:02x}"], [f"link set x{n} promisc {choice.choice(('on', 'off'))}"],
        [f"link set x{n} down", f"link set x{n} name y{n}"], [f"link set y{n} name x{n}"], [f"link del y{n}"]))


class InterfacesTest(SystemCase):
    communities = (RED, BLUE)

    def test_every_row_is_the_kernels_at_a_start_and_under_churn(self):
        red = self.vrfs.add(RED, *LINKS)
        self.namespace.ip(*LINKS[:4])
        self.start_system()
        blue = self.vrfs.add(BLUE, *LINKS)
        contexts = (None, RED, BLUE)
        for name in contexts[1:]:
            self.wait_for_context(self.client_of(name))
        for name in contexts:
            expect_interfaces(self, name)
        with self.subTest("counters"):
            red.ip("neigh add 10.0.0.9 lladdr 02:00:00:00:00:09 dev a0")
            red.send("10.0.0.9", [bytes(1000)] * 5)
            expect_interfaces(self, RED)
            sent = sum(int(row[16]) for row in walk_tables(self.client_of(RED), IF_TABLE)[IF_TABLE].values())
            self.assertGreater(sent, 5000)
        with self.subTest("GET, GETNEXT and GETBULK"):
            self.expect_one_answer(self.client_of(RED), "1.3.6.1.2.1.31")
        choice = random.Random(7)
        for _ in range(4):
            for _ in range(40):
                for namespace in (red, blue):
                    namespace.ip(*random_lines(choice), may_fail=True)
            for name in contexts:
                expect_interfaces(self, name)
        with self.subTest("a VRF's interfaces in the default context, too, as configured"):
            self.reconfigure("quorinDefaultInterfaces all")
            of_all = [interface_tables(namespace, self.vrf_id(name))
                      for name, namespace in ((None, self.namespace), *self.vrfs.namespaces.items())]
            self.expect(lambda: {entry: sorted(rows)
                                 for entry, rows in walk_tables(self.client, *INTERFACE_TABLES).items()},
                        lambda: {entry: sorted(index for tables in of_all for index in tables[entry])
                                 for entry in INTERFACE_TABLES}, "all interfaces")
            self.reconfigure()
            expect_interfaces(self)


if __name__ == "__main__":
    main()
