"""Every table, in the context of every VRF, is row for row what the kernel has in that VRF's namespace."""

import os

from harness import eventually, main
from harness.snmp import SYS_UP_TIME
from harness.tables import (ADDR, ADDRESS, DYNAMIC, ENTERPRISE, IP, IP_TABLES, LOCAL, MEDIA, PHYSICAL, PREFIX, STATIC,
                            VRF, VRF_IF, VRF_TABLES, inet, kernel_tables, read_tables, vrf_index)
from harness.vrfcase import VrfCase

# What two VRFs and the default one share: interface names, addresses and neighbours.
ADDRESSES = ("10.0.0.1/24", "10.0.0.2/24", "172.16.0.1/12", "2001:db8::1/64", "2001:db8::2/64", "fe80::1/64")
NEIGHBOURS = (("10.0.0.7", "permanent"), ("10.0.0.8", "stale"), ("10.0.0.9", "reachable"), ("10.0.0.10", "failed"),
              ("10.0.0.11", "noarp"), ("169.254.0.7", "permanent"), ("169.254.0.8", "stale"),
              ("2001:db8::7", "permanent"), ("2001:db8::8", "stale"), ("2001:db8::a", "failed"),
              ("fe80::7", "permanent"), ("fe80::8", "stale"))
SERVED_NEIGHBOURS = [(address, state) for address, state in NEIGHBOURS if state not in ("failed", "noarp")]


class VrfsTest(VrfCase):
    communities = ("red", "blue", "green")

    def populate(self, namespace, mark, interface="a0"):
        """The same in each VRF, but for the hardware addresses of the neighbours: these tell the VRFs apart."""
        namespace.add_interface(interface, *ADDRESSES)
        namespace.ip_batch([
            f"neigh replace {address} {'' if state == 'failed' else f'lladdr 02:00:00:00:{mark:02x}:{n:02x}'} "
            f"dev {interface} nud {state}" for n, (address, state) in enumerate(NEIGHBOURS)])

    def add_vrf(self, name, mark):
        namespace = self.vrfs.add(name)
        self.populate(namespace, mark)
        return namespace

    def walk(self, client):
        return read_tables(client.bulk_walk(IP), IP_TABLES)

    def expect_everything(self):
        self.expect_context(self.default, self.namespace)
        for name, namespace in self.vrfs.namespaces.items():
            self.expect_context(self.community(f"c-{name}"), namespace, name)
        self.expect_vrf_tables()

    def test_overlapping_vrfs_in_every_context(self):
        self.populate(self.namespace, 0x10)
        red = self.add_vrf("red", 0x11)
        self.start_system()
        self.add_vrf("blue", 0x12)
        self.vrfs.add("green")
        for name, namespace in self.vrfs.namespaces.items():
            self.wait_for_context(self.community(f"c-{name}"))
            self.expect_context(self.user(name), namespace, name)
        self.expect_everything()
        self.expect_context(self.user(""), self.namespace)

        with self.subTest("the rows themselves, as far as they do not come from the kernel's words"):
            tables = self.walk(self.community("c-red"))
            if_index = self.vrf_ids()["red"] << 20 | red.if_index("a0")
            self.assertEqual(tables[ADDR][(172, 16, 0, 1)][3], "255.240.0.0")
            self.assertEqual(tables[ADDRESS][(1, 4, 172, 16, 0, 1)][5],
                             f"{PREFIX}.5.{if_index}.1.4.172.16.0.0.12")
            self.assertIn((if_index, 1, 4, 172, 16, 0, 0, 12), tables[PREFIX])
            self.assertNotIn((2, 16, *[0] * 15, 1), tables[ADDR])
            kinds = {"permanent": STATIC, "stale": DYNAMIC, "reachable": DYNAMIC}
            for number, (address, state) in enumerate(NEIGHBOURS):
                row = tables[PHYSICAL].get((if_index, *inet(address)))
                self.assertEqual(row is not None, (address, state) in SERVED_NEIGHBOURS, address)
                if row:
                    is_local = address.startswith(("169.254", "fe80"))
                    self.assertEqual((row[4], row[6]), (f"0200000011{number:02x}", LOCAL if is_local else kinds[state]))
            self.assertEqual({tuple(index[1:]): row[4] for index, row in tables[MEDIA].items()},
                             {tuple(map(int, address.split("."))): kinds[state]
                              for address, state in SERVED_NEIGHBOURS if ":" not in address})
        with self.subTest("no neighbour of one VRF in another's context"):
            for name, mark in (("red", "11"), ("blue", "12"), ("green", "")):
                hardware = {row[4][8:10] for row in self.walk(self.community(f"c-{name}"))[PHYSICAL].values()}
                self.assertEqual(hardware, {mark} - {""})
        with self.subTest("times of neighbours are within the life of the agent"):
            up = self.ticks(self.default.get(SYS_UP_TIME)[0])
            for bind in self.community("c-blue").walk(f"{PHYSICAL}.5"):
                self.assertTrue(0 <= self.ticks(bind) <= up + 100, bind)
        with self.subTest("the VRF tables are in the default context alone"):
            for client in (self.community("c-red"), self.user("green")):
                self.assertEqual(read_tables(client.bulk_walk(ENTERPRISE), VRF_TABLES), {VRF: {}, VRF_IF: {}})
        with self.subTest("GET, GETNEXT and GETBULK say the same"):
            client = self.community("c-blue")
            walked = [bind for bind in client.walk(IP) if bind.exists]
            self.assertEqual([bind for bind in client.bulk_walk(IP) if bind.exists], walked)
            self.assertEqual(client.get(*(bind.oid for bind in walked[:60])), walked[:60])

    @staticmethod
    def ticks(bind):
        return int(bind.value.split(")")[0].strip("("))

    def test_changes_while_it_runs(self):
        red, blue = self.add_vrf("red", 0x11), self.add_vrf("blue", 0x12)
        self.start_system()
        self.wait_for_context(self.community("c-blue"))
        self.expect_everything()
        steps = (
            ("address added", red, ["addr add 10.0.9.1/30 dev a0", "addr add 2001:db8:9::1/48 dev a0"]),
            ("address deleted", red, ["addr del 172.16.0.1/12 dev a0", "addr del 2001:db8:9::1/48 dev a0"]),
            ("the first of two addresses with one prefix deleted", red, ["addr del 2001:db8::1/64 dev a0"]),
            ("prefix length changed", blue, ["addr del 2001:db8::2/64 dev a0", "addr add 2001:db8::2/56 dev a0"]),
            ("one address on two interfaces", blue, ["link add a1 type veth peer name a1-p", "link set a1-p up",
                                                     "link set a1 up", "addr add 10.0.0.1/28 dev a1"]),
            ("and the first of them down", blue, ["link set a0 down"]),
            ("and up again", blue, ["link set a0 up", "neigh replace 10.0.0.7 lladdr 02:00:00:00:12:77 dev a0"]),
            ("neighbour added", red, ["neigh add 10.0.0.77 lladdr 02:00:00:00:11:77 dev a0",
                                      "neigh add 2001:db8::77 lladdr 02:00:00:00:11:78 dev a0 nud stale"]),
            ("hardware address changed", red, ["neigh replace 10.0.0.77 lladdr 02:00:00:00:11:79 dev a0",
                                               "neigh replace fe80::8 lladdr 02:00:00:00:11:7a dev a0 nud stale"]),
            ("dynamic becomes static, and back", red, ["neigh replace 10.0.0.8 dev a0 nud permanent",
                                                       "neigh replace 10.0.0.7 dev a0 nud stale"]),
            ("neighbour deleted", red, ["neigh del 10.0.0.77 dev a0", "neigh del fe80::7 dev a0"]),
            ("neighbour not resolved any more", red, ["neigh replace 2001:db8::77 dev a0 nud failed"]),
            ("all neighbours flushed", red, ["neigh flush all nud all"]),
            ("interface renamed", red, ["link set a0 down", "link set a0 name b0", "link set b0 up"]),
            ("interface deleted", red, ["link del b0"]),
            ("interface made again", red, ["link add a0 type veth peer name a0-p", "link set a0-p up",
                                           "link set a0 up", "addr add 10.0.0.1/24 dev a0"]),
        )
        for what, namespace, lines in steps:
            with self.subTest(what):
                before = kernel_tables(namespace)
                namespace.ip_batch(lines)
                self.assertNotEqual(kernel_tables(namespace), before, "the step changes nothing")
                self.expect_everything()

    def test_neighbours_that_the_kernel_resolves_itself(self):
        peer = self.vrfs.add("blue", "link add b0 type veth peer name a0", "link set b0 up",
                             "addr add 10.0.0.2/24 dev b0", "addr add 2001:db8::2/64 dev b0 nodad")
        red = self.vrfs.add("red")
        self.start_system()
        peer.ip("link", "set", "a0", "netns", red.file)
        red.ip_batch(["link set a0 up", "addr add 10.0.0.1/24 dev a0", "addr add 2001:db8::1/64 dev a0 nodad"])
        for target in ("10.0.0.2", "2001:db8::2"):
            red.run("python3", "-c", "import socket,sys; a = sys.argv[1]; socket.socket(socket.AF_INET6 if ':' in a else "
                    "socket.AF_INET, socket.SOCK_DGRAM).sendto(b'', (a, 9))", target)

        def resolved():
            return {entry["dst"] for entry in red.ip_json("neigh") if "lladdr" in entry} >= {"10.0.0.2", "2001:db8::2"}

        eventually(resolved, "the kernel does not find the peer")
        self.expect_everything()
        rows = self.walk(self.community("c-red"))[MEDIA]
        self.assertEqual([(index[1:], row[4]) for index, row in rows.items()], [((10, 0, 0, 2), DYNAMIC)])

    def test_interface_moves_from_vrf_to_vrf(self):
        red, blue = self.vrfs.add("red"), self.vrfs.add("blue")
        self.start_system()
        red.ip_batch(["link add m0 type veth peer name m0-p"])
        places = [red, blue, self.namespace, red, self.namespace, blue]
        for at, place in enumerate(places):
            if at > 0:
                target = place.file if place is not self.namespace else place.name
                places[at - 1].ip("link", "set", "m0", "netns", target)
            place.ip_batch(["link set m0 up", "addr add 10.3.0.1/24 dev m0",
                            "neigh add 10.3.0.9 lladdr 02:00:00:00:00:09 dev m0"])
            with self.subTest(at=at):
                self.expect_everything()
                clients = {red: self.community("c-red"), blue: self.community("c-blue"), self.namespace: self.default}
                shown = [name for name, client in clients.items() if (10, 3, 0, 1) in self.walk(client)[ADDR]]
                self.assertEqual(shown, [place])

    def test_nothing_can_be_set(self):
        red = self.add_vrf("red", 0x11)
        self.populate(self.namespace, 0x10)
        self.start_system()
        self.wait_for_context(self.community("c-red"))
        self.expect_everything()
        letters = {"INTEGER": "i", "Gauge32": "u", "Timeticks": "t", "IpAddress": "a", "OID": "o", "Hex-STRING": "x",
                   "STRING": "s", "BITS": "x"}
        for client, entries in ((self.community("w-red"), IP_TABLES), (self.user("red"), IP_TABLES),
                                (self.default, (*IP_TABLES, VRF, VRF_IF))):
            columns = {}
            for entry in entries:
                for bind in client.bulk_walk(entry):
                    columns.setdefault((entry, bind.oid[len(entry) + 1:].split(".")[0]), bind)
            self.assertEqual({entry for entry, _ in columns}, set(entries))
            for (entry, column), bind in columns.items():
                value = str(self.ticks(bind)) if bind.type == "Timeticks" else bind.value or "x"
                with self.subTest(entry=entry, column=column):
                    self.assertEqual(client.set_error((bind.oid, letters[bind.type], value)), "notWritable")
        for entry, row in ((PHYSICAL, f"{red.if_index('a0')}.1.4.10.0.0.99"), (ADDRESS, "1.4.10.0.0.99")):
            status = 8 if entry == PHYSICAL else 10
            self.assertEqual(self.community("w-red").set_error((f"{entry}.{status}.{row}", "i", "4")), "notWritable")
        self.expect_everything()

    def test_what_only_the_configuration_knows(self):
        file = os.path.join(self.directory, "mirror.yaml")

        def configure(text):
            with open(file, "w", encoding="utf-8") as config:
                config.write(text)

        red = self.vrfs.add("red")
        self.vrfs.add("blue")
        configure('vrfs:\n  red:\n    routeDistinguisher: "65000:1"\n  none:\n    routeDistinguisher: "1:1"\n')
        self.mirror = self.start_mirror("--config", file)
        self.agent = self.start_agent()
        self.wait_until_complete()

        def row(name):
            return read_tables(self.default.bulk_walk(VRF), [VRF], may_be_torn=True)[VRF].get(vrf_index(name))

        eventually(lambda: row("red") == {2: "00", 3: b"65000:1".hex(), 4: "1"}, lambda: row("red"))
        eventually(lambda: row("blue") == {2: "00", 3: "", 4: "1"}, lambda: row("blue"))
        red.sysctl("net.ipv4.ip_forward", 1)
        eventually(lambda: row("red")[2] == "80", lambda: row("red"))
        red.sysctl("net.ipv6.conf.all.forwarding", 1)
        eventually(lambda: row("red")[2] == "c0", lambda: row("red"))
        red.sysctl("net.ipv4.ip_forward", 0)
        eventually(lambda: row("red")[2] == "40", lambda: row("red"))
        self.assertEqual(row("blue")[2], "00")
        configure('vrfs:\n  blue:\n    routeDistinguisher: "192.0.2.1:7"\n')
        eventually(lambda: (row("red")[3], row("blue")[3]) == ("", b"192.0.2.1:7".hex()), "the file is not taken up")
        self.assertIsNone(row("none"))


if __name__ == "__main__":
    main()
