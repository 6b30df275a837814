"""VRFs with every kind of name, and with names that are none."""

import os
import re

from harness import eventually, main
from harness.tables import VRF, read_tables, vrf_index
from harness.vrfcase import VrfCase

LONGEST = 100
LONGEST_CONTEXT = 32  # net-snmp's access control ends there
NAMES = ("r", "b.lue", "...", " ", "two words", "tab\there", "line\nbreak", 'quote"d', "back\\slash", "-n", "Zürich",
         "緑", b"\xff\x80\xfe".decode("utf-8", "surrogateescape"), "vrf%s", "x" * 31, "ö" * 16, "x" * 33, "z" * 99,
         "ü" * 50, "a.b c" * 20)


class VrfNamesTest(VrfCase):
    def listed(self):
        return list(read_tables(self.default.bulk_walk(VRF), [VRF], may_be_torn=True)[VRF])

    def expect_listed(self, names):
        # The length comes first in such an index, so a shorter name comes before a longer one.
        expected = sorted(vrf_index(name) for name in names)
        eventually(lambda: self.listed() == expected, lambda: f"listed {self.listed()}\nexpected {expected}")

    def test_names_of_any_bytes(self):
        for name in NAMES[::2]:
            self.vrfs.add(name)
        self.start_system()
        for name in NAMES[1::2]:
            self.vrfs.add(name)
        self.expect_listed(NAMES)
        self.expect_vrf_tables()
        self.assertEqual({length for length, *_ in self.listed()} & {1, LONGEST}, {1, LONGEST})
        for number, name in enumerate(NAMES):
            data = os.fsencode(name)
            self.vrfs.namespaces[name].ip("addr", "add", f"10.0.{number}.1/32", "dev", "lo")
            if len(data) <= LONGEST_CONTEXT:
                with self.subTest(name=name):
                    client = self.user(name)
                    self.wait_for_context(client)
                    self.expect_context(client, self.vrfs.namespaces[name], name)
            else:
                self.agent.wait_for_output(re.compile(re.escape(data.decode("ascii", "ignore")[:20])))
        for name in NAMES[::3]:
            self.vrfs.remove(name)
        left = [name for name in NAMES if name not in NAMES[::3]]
        self.expect_listed(left)
        self.expect_vrf_tables()
        self.assertEqual(self.mirror.lines(), [])

    def test_names_that_are_none(self):
        """Which ones, and that they are told of once, is in mirror/VrfNamespaces_test.cpp."""
        self.vrfs.add("red")
        self.vrfs.add("w" * 101)
        self.start_system()
        self.vrfs.add("default")
        self.vrfs.add("blue")
        self.expect_listed(["red", "blue"])
        self.expect_vrf_tables(["red", "blue"])
        with open(self.vrfs.file("nothing"), "w", encoding="ascii"):
            pass
        os.mkdir(self.vrfs.file("directory"))
        os.symlink("/proc/self/no such file", self.vrfs.file("nowhere"))
        os.symlink(f"/run/netns/{self.namespace.name}", self.vrfs.file("myself"))
        for name, reason in {"w" * 101: ".* has 101 bytes", "nothing": "it is no network namespace",
                             "myself": "it is the default VRF's namespace"}.items():
            self.mirror.wait_for_output(re.compile(f"ns-{name} is not served: {reason}"))
        self.vrfs.remove("default")
        self.vrfs.add("green")
        self.expect_listed(["red", "blue", "green"])


if __name__ == "__main__":
    main()
