"""The frame of a test with VRFs: a directory of namespaces, and who may ask which context."""

import os

from harness.case import SystemCase, eventually
from harness.snmp import SYS_UP_TIME, Client, SnmpError
from harness.tables import (ENTERPRISE, IF_INDEX_BITS, IP, IP_TABLES, VRF_IF, VRF_TABLES, TornWalk, kernel_tables,
                            read_tables, vrf_tables)
from harness.vrf import VrfDirectory

# Every community may read one context, the user all of them.
ACCESS = """
view all included .1
com2sec all default public
com2sec writer default private
group readers v2c all
group writers v2c writer
access readers "" v2c noauth prefix all none none
access writers "" v2c noauth prefix all all none
createUser alice SHA authentic-pass AES private-pass
group operators usm alice
access operators "" usm priv prefix all all none
"""
WHOLE = ("-Ox", "--hexOutputLength=0")  # octets as one line of hexadecimal digits, however many they are


class VrfClients:
    """Adds to a SystemCase the directory of VRFs and those who ask in their contexts."""

    def setUp(self):
        super().setUp()
        self.vrfs = VrfDirectory(os.path.join(self.directory, "netns"))
        self.addCleanup(self.vrfs.close)

    def start_mirror(self, *options):
        return self.start("quorin-mirrord", "-f", "--store", self.store, "--netns-dir", self.vrfs.path, *options)

    def community(self, name, timeout=5):
        return Client(self.namespace, self.client.agent, ("-v2c", "-c", name, *WHOLE), timeout)

    def user(self, context, name="alice", timeout=5):
        access = ("-v3", "-u", name, "-l", "authPriv", "-a", "SHA", "-A", "authentic-pass", "-x", "AES", "-X",
                  "private-pass", "-n", context)
        return Client(self.namespace, self.client.agent, (*access, *WHOLE), timeout)

    def wait_for_context(self, client):
        waiting = client.impatient()
        eventually(lambda: waiting.has(SYS_UP_TIME), "the context does not answer")


class VrfCase(VrfClients, SystemCase):
    communities = ()  # names of VRFs; the community of red is "c-red", and "w-red" may write

    def setUp(self):
        super().setUp()
        lines = [f"com2sec -Cn {name} {who} default {letter}-{name}\n"
                 for name in self.communities for letter, who in (("c", "all"), ("w", "writer"))]
        self.write_configuration(ACCESS + "".join(lines))
        self.default = self.community("private")
        self.numbers = {}

    def vrf_ids(self):
        """name -> number, from the interfaces of the VRFs. No number may stand for two names."""
        ids = {}
        for (index,), row in read_tables(self.default.bulk_walk(VRF_IF), [VRF_IF])[VRF_IF].items():
            name, number = bytes.fromhex(row[1]).decode("utf-8", "surrogateescape"), index >> IF_INDEX_BITS
            if number:  # interfaces of VRF devices have none
                self.assertEqual(ids.setdefault(number, name), name)
        return {name: number for number, name in ids.items()}

    def vrf_id(self, name):
        """A VRF keeps its number, so it is asked for once."""
        if name not in self.numbers:
            self.numbers = self.vrf_ids()
        return self.numbers[name]

    def expect(self, served, expected, what):
        """`served` becomes what `expected` gives. Both are asked again and again, since both may change."""
        last = {}

        def same():
            try:
                last["served"], last["expected"] = served(), expected()
            except (TornWalk, SnmpError, KeyError) as error:
                last["served"] = error
                return False
            return last["served"] == last["expected"]

        eventually(same, lambda: f"{what}: {difference(last)}", interval=0.02)

    def expect_context(self, client, namespace, name=None):
        """All IP tables of a context are the kernel's, row for row."""
        self.expect(lambda: read_tables(client.bulk_walk(IP), IP_TABLES),
                    lambda: kernel_tables(namespace, self.vrf_id(name) if name else 0), f"context {name}")

    def expect_vrf_tables(self, names=None):
        """The VRF tables list these VRFs, by default every one that was made."""
        namespaces = {name: self.vrfs.namespaces[name] for name in names or self.vrfs.namespaces}
        self.expect(lambda: read_tables(self.default.bulk_walk(ENTERPRISE), VRF_TABLES),
                    lambda: vrf_tables(namespaces, self.vrf_id), "VRF tables")


def difference(found):
    """The rows that differ, for people."""
    served, expected = found.get("served"), found.get("expected")
    if not isinstance(served, dict) or not isinstance(expected, dict):
        return f"served {served!r}"
    lines = []
    for table, rows in expected.items():
        for index in sorted(set(rows) | set(served[table])):
            if rows.get(index) != served[table].get(index):
                lines.append(f"{table} row {index}: served {served[table].get(index)}, expected {rows.get(index)}")
    return "\n".join(lines)
