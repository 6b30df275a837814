"""A store that is damaged, foreign, of another version, unwritable, or taken away."""

import os
import re
import shutil
import time

from harness import SystemCase, eventually, main
from harness.kernel import DYNAMIC, STATIC, kernel_tables
from harness.tables import IP_TABLES, MEDIA, PHYSICAL, walk_tables

PAGE = 4096
MAGIC = b"QUORINST"  # begins the record that names the format version, in the eight bytes behind it
HARDWARE = b"\x02\x00\x5e\x77"  # begins the hardware addresses of the neighbours that a test makes


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

    def make_store(self):
        """A store that a mirror wrote and left."""
        mirror = self.start_mirror()
        eventually(lambda: os.path.exists(self.data), f"no {self.data}")
        self.namespace.add_interface("a0", "10.0.0.1/24", "10.0.0.2/24")
        self.assertEqual(mirror.stop(), 0)

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
        self.make_store()
        good = self.read()
        self.assertGreater(len(good), 4 * PAGE)
        self.assertIn(MAGIC, good)
        other = re.sub(MAGIC + b"(?s:.{8})", MAGIC + b"\x63\0\0\0\0\0\0\x63", good)
        for what, content, words in (
                ("a text", b"not a store at all\n", ()), ("noise", os.urandom(16 * PAGE), ()),
                ("noise behind the first pages", good[:2 * PAGE] + os.urandom(len(good) - 2 * PAGE), ()),
                ("cut short", good[:3 * PAGE], ()), ("version 99", other, ("version 99", "--recreate"))):
            with self.subTest(what):
                with open(self.data, "wb") as file:
                    file.write(content)
                self.expect_refused(*words)
        with self.subTest("what the line advises helps"):
            self.start_mirror("--recreate")
            self.start_agent()
            self.wait_until_complete()
            self.expect_context()
        with self.subTest("an empty file is no one's"):
            self.assertEqual([self.agent.stop(), self.mirror.stop()], [0, 0])
            os.truncate(self.data, 0)
            self.start_system()
            self.expect_context()

    def test_directory_that_cannot_be_made(self):
        self.store = os.path.join(self.write_file("file", "in the way\n"), "store")
        self.expect_mirror_refuses()

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

    def serve_neighbours(self, count):
        """As many of each family as that; nothing writes the store any more."""
        self.namespace.add_interface("a0", "10.0.0.1/16", "2001:db8::1/64")
        self.namespace.ip(*(f"neigh add {address} lladdr 02:00:5e:77:{n >> 8:02x}:{n & 255:02x} dev a0"
                            for n in range(count)
                            for address in (f"10.0.{1 + (n >> 8)}.{n & 255}", f"2001:db8::1:{n:x}")))
        self.start_system()
        self.expect_context()
        self.mirror.kill()

    def pages_with(self, data):
        """Offsets of the pages of which a record has the data; a page has its records behind a gap, whose bytes mean
        nothing, and two bytes at offset 14 say where the gap ends."""
        content = self.read()
        pages = [content[at:at + PAGE] for at in range(0, len(content), PAGE)]
        return [number * PAGE for number, page in enumerate(pages)
                if number > 1 and data in page[int.from_bytes(page[14:16], "little"):]]

    def test_damage_to_one_neighbour(self):
        self.serve_neighbours(4)
        first = HARDWARE + b"\0\0"
        data = self.read()
        self.assertIn(first, data)
        self.overwrite(0, data.replace(first, b"\xff" + first[1:]))
        expected = kernel_tables(self.namespace, entries=IP_TABLES)
        for entry, column, kind in ((MEDIA, 2, 4), (PHYSICAL, 4, 6)):
            for row in expected[entry].values():
                if row[column] == first.hex():
                    row.update({column: "", kind: DYNAMIC})
                else:
                    self.assertEqual(row[kind], STATIC)

        def served():
            return walk_tables(self.client, *IP_TABLES)

        self.expect(served, lambda: expected, "all but the damaged record")
        for table in ("arp", "neighbor"):
            self.agent.wait_for_output(f"{re.escape(self.store)} is damaged: table {table}, key .*checksum")

        def is_settled():  # for two seconds, in which a store that is taken for damaged would be opened again
            said, end = self.agent.lines(), time.monotonic() + 2
            while time.monotonic() < end:
                if served() != expected:
                    return False
            return self.agent.lines() == said

        eventually(is_settled, "one damage is said, or in the way, again and again")

    def test_damage_while_it_is_served(self):
        self.serve_neighbours(500)
        addresses = self.addresses()
        pages = self.pages_with(HARDWARE)
        self.assertGreater(len(pages), 10)

        def ask():
            for _ in range(3):
                self.client.bulk_walk("1.3.6.1.2.1.4")
                self.assertTrue(self.client.answers())
            self.assertTrue(self.agent.running)

        for at in pages:
            self.overwrite(at, os.urandom(PAGE))
        ask()
        self.assertEqual(self.addresses(), addresses)
        self.agent.wait_for_output(re.escape(self.store))
        with self.subTest("the mirror refuses it, and a new beginning heals it"):
            self.assertIn("--recreate", self.expect_mirror_refuses())
            self.start_mirror("--recreate")
            self.expect_context()
        for is_damaged in (False, True):
            with self.subTest("a new directory", is_damaged=is_damaged):
                self.mirror.kill()
                if is_damaged:
                    self.overwrite(2 * PAGE, os.urandom(os.path.getsize(self.data) - 2 * PAGE))
                    ask()
                shutil.rmtree(self.store)
                self.namespace.ip(f"addr add 10.0.0.{2 + is_damaged}/24 dev a0")
                self.start_mirror()
                self.expect_context()


if __name__ == "__main__":
    main()
