"""A store that is damaged, foreign, of another version, unwritable, or taken away."""

import os
import re
import shutil

from harness import SystemCase, eventually, main
from harness.kernel import DYNAMIC, kernel_tables
from harness.tables import IP_TABLES, MEDIA, PHYSICAL, walk_tables

PAGE = 4096
MAGIC = b"QUORINST"  # begins the record that names the format version, in the eight bytes behind it


class StoreTest(SystemCase):
    @property
    def data(self):
        return os.path.join(self.store, "data.mdb")

    def read(self):
        with open(self.data, "rb") as file:
            return file.read()

    def overwrite(self, offset, data):
        with open(self.data, "r+b") as file:
            file.seek(offset)
            file.write(data)

    def expect_mirror_refuses(self):
        """One line with the place, and a failure as the status; returns the line."""
        mirror = self.start_mirror()
        self.assertNotEqual(mirror.wait(), 0, mirror.output())
        self.assertEqual(len(mirror.lines()), 1, mirror.output())
        self.assertIn(self.store, mirror.lines()[0])
        return mirror.lines()[0]

    def expect_refused(self, *words):
        """By the mirror, which changes not one byte, and by the agent, which answers what needs no store."""
        before = self.read()
        said = [self.expect_mirror_refuses()]
        self.assertEqual(self.read(), before, "the refused store was changed")
        agent = self.start_agent()
        eventually(self.client.answers, "no answer")
        said.append(agent.wait_for_output(re.escape(self.store)))
        self.assertEqual(self.addresses(), {})
        self.assertEqual(agent.stop(), 0)
        for line in said:
            for word in words:
                self.assertIn(word, line)

    def test_foreign_damaged_or_of_another_version(self):
        mirror = self.start_mirror()
        eventually(lambda: os.path.exists(self.data), f"no {self.data}")
        self.namespace.add_interface("a0", "10.0.0.1/24", "10.0.0.2/24")
        self.assertEqual(mirror.stop(), 0)
        good = self.read()
        other = re.sub(MAGIC + b"(?s:.{8})", MAGIC + b"\x63\0\0\0\0\0\0\x63", good)
        for what, content, words in (
                ("a text", b"not a store at all\n", ()), ("cut short", good[:3 * PAGE], ()),
                ("noise behind the first pages", good[:2 * PAGE] + os.urandom(len(good) - 2 * PAGE), ()),
                ("version 99", other, ("version 99", "--recreate"))):
            with self.subTest(what):
                with open(self.data, "wb") as file:
                    file.write(content)
                self.expect_refused(*words)
        with self.subTest("what the line advises helps"):
            self.start_mirror("--recreate")
            self.start_agent()
            self.wait_until_complete()
            self.expect_context()

    def test_agent_as_another_user(self):
        os.chmod(self.directory, 0o755)
        os.chmod(self.configuration, 0o644)
        os.mkdir(self.store)
        os.chmod(self.store, 0o755)
        self.start_mirror()
        agent = self.start_agent("-u", "nobody", "-g", "nogroup")
        agent.wait_for_output(re.escape(self.store))
        self.assertTrue(self.client.answers(), "one that may not register as a reader says so, and answers")
        for program in (agent, self.mirror):
            self.assertEqual(program.stop(), 0)
        shutil.rmtree(self.store)
        os.mkdir(self.store)
        shutil.chown(self.store, group="nogroup")
        os.chmod(self.store, 0o2750)
        self.start_mirror()
        self.start_agent("-u", "nobody", "-g", "nogroup")
        self.wait_until_complete()
        self.namespace.add_interface("a0", "10.0.0.1/24")
        self.expect_context()

    def test_damage_while_it_is_served(self):
        self.namespace.add_interface("a0", "10.0.0.1/16", "2001:db8::1/64")
        self.namespace.ip(*(f"neigh add {address} lladdr 02:00:5e:77:{n >> 8:02x}:{n & 255:02x} dev a0"
                            for n in range(500) for address in (f"10.0.{1 + (n >> 8)}.{n & 255}", f"2001:db8::1:{n:x}")))
        self.start_system()
        self.expect_context()
        self.mirror.kill()
        with self.subTest("one record"):
            first = bytes.fromhex("02005e770000")
            self.overwrite(0, self.read().replace(first, b"\xff" + first[1:]))
            expected = kernel_tables(self.namespace, entries=IP_TABLES)
            for entry, column, kind in ((MEDIA, 2, 4), (PHYSICAL, 4, 6)):
                damaged = [row for row in expected[entry].values() if row[column] == first.hex()]
                self.assertGreater(len(damaged), 0)
                for row in damaged:
                    row.update({column: "", kind: DYNAMIC})
            self.expect(lambda: walk_tables(self.client, *IP_TABLES), lambda: expected, "all but the damaged record")
            for table in ("arp", "neighbor"):
                self.agent.wait_for_output(f"{re.escape(self.store)} is damaged: table {table}, key .*checksum")
        addresses = self.addresses()
        for is_healed_in_place in (True, False):
            with self.subTest("noise behind the first pages", is_healed_in_place=is_healed_in_place):
                self.overwrite(2 * PAGE, os.urandom(os.path.getsize(self.data) - 2 * PAGE))
                for _ in range(3):
                    self.client.walk("1.3.6.1.2.1.4")
                    self.assertEqual(self.addresses(), addresses)
                if is_healed_in_place:
                    self.assertIn("--recreate", self.expect_mirror_refuses())
                    self.start_mirror("--recreate")
                else:
                    shutil.rmtree(self.store)
                    self.namespace.ip("addr add 10.0.0.2/24 dev a0")
                    self.start_mirror()
                self.expect_context()
            self.mirror.kill()


if __name__ == "__main__":
    main()
