"""How a manager finds the VRFs and asks them, while VRFs come and go."""

from harness import SystemCase, eventually, main
from harness.kernel import vrf_index
from harness.snmp import SYSTEM, SnmpError
from harness.tables import ADDR, ENTERPRISE, IF_INDEX_BITS, TIME_TICKS, numbers, text_value, walk_table

VPN = "1.3.6.1.2.1.10.166.11.1"
IF_CONF, VPN_VRF, PERF = f"{VPN}.2.1.1", f"{VPN}.2.2.1", f"{VPN}.3.1.1"
NAMES = ("red", "b.lue", "two words", "Zürich", "x" * 31)
CONTEXTS = "1.3.6.1.6.3.16.1.1"
SYS_NAME, SYS_OR_ID = SYSTEM + ".5.0", SYSTEM + ".9.1.2"
TOO_LONG = "y" * 32  # for MplsL3VpnName


def text(bind):
    return bytes.fromhex(bind.value).decode()


class DiscoveryTest(SystemCase):
    communities = NAMES

    def rows(self, entry):
        """{index: {column: value}}; the OIDs of one walk ascend."""
        table, last = {}, ()
        for bind in self.client.walk(entry):
            oid = numbers(bind.oid)
            self.assertLess(last, oid)
            last = oid
            column, *index = oid[len(numbers(entry)):]
            table.setdefault(tuple(index), {})[column] = text_value(bind)
        return table

    def kernel(self):
        """The scalars and the three tables, of `ip -j link` and of inetCidrRouteNumber in each context."""
        vrfs, interfaces, perf, active = {}, {}, {}, 0
        for name, namespace in self.vrfs.namespaces.items():
            if name == TOO_LONG:
                continue
            links = namespace.ip_json("link", "show")
            # Of a driver that does not tell, the interface is up while it is enabled.
            up = sum(link["operstate"] == "UP" or link["operstate"] == "UNKNOWN" and "UP" in link["flags"]
                     for link in links)
            active += up > 0
            index = vrf_index(name)
            vrfs[index] = {2: "", 3: "", 4: "", 5: TIME_TICKS, 6: "1" if up else "2", 7: str(up), 8: str(len(links)),
                           9: "0", 10: "0", 11: "0", 12: TIME_TICKS, 13: "1", 14: "1", 15: "2"}
            for link in links:
                number = self.vrf_id(name) << IF_INDEX_BITS | link["ifindex"]
                interfaces[(*index, number)] = {2: "2", 4: "2", 5: "1"}
            count = self.client_of(name).get("1.3.6.1.2.1.4.24.6.0")[0].value
            perf[index] = {1: count, 2: "0", 3: count}
        scalars = [str(len(vrfs)), str(active), str(len(interfaces))]
        return {"scalars": dict(enumerate(scalars)), "interfaces": interfaces, "vrfs": vrfs, "perf": perf}

    def served(self):
        scalars = (bind.value for bind in self.client.get(*(f"{VPN}.1.{number}.0" for number in (1, 2, 3))))
        return {"scalars": dict(enumerate(scalars)), "interfaces": self.rows(IF_CONF), "vrfs": self.rows(VPN_VRF),
                "perf": self.rows(PERF)}

    def test_vrfs_and_interfaces_are_the_kernels(self):
        self.configure("quorinRouteCountInterval 1")

        def configure_mirror(distinguisher):
            settings = f"red: {{routeDistinguisher: '{distinguisher}'}}" if distinguisher else ""
            return self.write_file("mirror.yaml", f"vrfs: {{{settings}}}\n")

        for name in NAMES[::2]:
            self.vrfs.add(name, "link add a0 type veth peer name a0-p", "link set a0 up", "addr add 10.1.0.1/16 dev a0")
        self.start_system("--config", configure_mirror(None))
        self.expect(self.served, self.kernel, "at start")
        for name in (*NAMES[1::2], TOO_LONG):
            self.vrfs.add(name, "link add a0 type veth peer name a0-p", "link set lo down")
        red = self.vrfs.namespaces["red"]
        red.ip("link set a0-p up", "link add a1 type veth peer name a1-p", "route add blackhole 10.9.0.0/16",
               "route add blackhole 2001:db8:9::/48")
        self.expect(self.served, self.kernel, "after additions")
        root = self.client.walk(VPN)
        self.assertEqual(self.client.walk(VPN, "snmpwalk"), root)
        changed = f"{VPN_VRF}.12." + ".".join(map(str, vrf_index("red")))
        for change, argument in ((configure_mirror, "65000:1"), (configure_mirror, None), (red.ip, "link del a1")):
            before = self.client.get(changed)[0].value
            change(argument)
            eventually(lambda: self.client.get(changed)[0].value != before, f"no change of red after {argument}")
        red.ip("link set a0-p down", "route del blackhole 10.9.0.0/16")
        self.vrfs.remove(NAMES[2])
        self.expect(lambda: self.without_history(self.served()), lambda: self.without_history(self.kernel()),
                    "after removals")
        self.reconfigure("quorinDisableObjects mpls-l3vpn")
        eventually(lambda: not self.client.walk(VPN), "the group is still served")

    def contexts(self):
        return [text(bind) for bind in self.client.walk(CONTEXTS)]

    def test_contexts_are_listed_while_they_are_there(self):
        self.configure("quorinVrfSysName %h-%v")
        for name in ("red", "b.lue", "z" * 33):  # the last is too long for vacmContextName
            self.vrfs.add(name)
        self.start_system()
        for names in (["", "red", "b.lue"], ["", "red"], ["", "red", "b.lue"]):
            self.expect(self.contexts, lambda names=names: names, "contexts")
            change = self.vrfs.remove if "b.lue" in self.vrfs.namespaces else self.vrfs.add
            change("b.lue")
        red = self.client_of("red")
        self.assertEqual([text(client.get(SYS_NAME)[0]) for client in (self.client, red)], ["router", "router-red"])
        self.assertIn(red.get(SYS_NAME)[0], red.walk(SYSTEM, "snmpwalk"))
        for client in (self.client, red):
            modules = {bind.value.lstrip(".") for bind in client.walk(SYS_OR_ID)}
            self.assertLessEqual({VPN[:-2], ENTERPRISE + ".3.18", ENTERPRISE + ".4"}, modules)
        self.reconfigure("quorinDisableObjects mpls-l3vpn", "quorinVrfSysName %x", "quorinVrfSysName red")
        eventually(lambda: VPN[:-2] not in {bind.value.lstrip(".") for bind in self.client.walk(SYS_OR_ID)},
                   "a disabled module is named")
        self.wait_for_context(red)
        self.assertEqual(text(red.get(SYS_NAME)[0]), "router")

    def test_communities_of_contexts(self):
        self.access += """
com2sec other 127.9.9.9 elsewhere
com2sec narrow default narrow
com2sec -Cn b.lue all default fixed
com2sec -Cn b.lue all default public@written
group other v2c other
group narrow v2c narrow
access other "" v2c noauth prefix all all none
access narrow "" v2c noauth exact all none none
"""
        self.configure("quorinContextCommunities @")
        for number, name in enumerate(("red", "b.lue", "written"), 1):
            self.vrfs.add(name, f"addr add 10.0.{number}.1/32 dev lo")
        self.start_system()
        for community, own in (("public@red", 1), ("private@b.lue", 2), ("public@written", 2), ("private@written", 3)):
            client = self.community(community)
            self.wait_for_context(client)
            for tool in ("snmpwalk", "snmpbulkwalk"):
                self.expect(lambda: {bind.value for bind in client.walk(ADDR + ".1", tool)},
                            lambda: {"127.0.0.1", f"10.0.{own}.1"}, community)
        refused = ("public@", "@", "@@", "@red", "public@@red", "public@RED", "public@redd", "public@" + "x" * 240,
                   "public@" + "x" * 1000, "nobody@red", "narrow@red", "fixed@red", "elsewhere@red", "public@red@red")
        for community in refused:
            with self.subTest(community=community):
                with self.assertRaisesRegex(SnmpError, "timeout"):
                    self.community(community, timeout=0.3).get(SYS_NAME)
        self.assertTrue(self.community("narrow").answers())
        self.vrfs.remove("red")
        self.expect(self.contexts, lambda: ["", "b.lue", "written"], "contexts")
        self.assertFalse(self.community("public@red", timeout=0.3).answers())
        said = len(self.agent.lines())
        for _ in range(50):
            self.community("public@nowhere", timeout=0.02).answers()
        self.assertEqual(self.agent.lines()[said:], [])
        self.assertEqual(self.community("public@written").set_error(SYS_NAME, "s", "x"), "noAccess")
        self.reconfigure()
        eventually(lambda: not self.community("private@written", timeout=0.3).answers(), "the setting is still in effect")

    @staticmethod
    def without_history(tables):
        """Less the sums of routes added and deleted, whose difference must be the count."""
        for row in tables["perf"].values():
            row.update({1: str(int(row[1]) - int(row[2])), 2: "0"})
        return tables


if __name__ == "__main__":
    main()
