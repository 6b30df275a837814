"""A store that is damaged, foreign, of another version, unwritable, or taken away."""

import os
import re
import shutil
import signal
import time

from harness import Client, SystemCase, eventually, kernel_rows, main
from harness.tables import DYNAMIC, MEDIA, PHYSICAL, STATIC, kernel_tables, read_tables

PAGE = 4096
MAGIC = b"QUORINST"  # begins the record that names the format version, in the eight bytes behind it


class StoreTest(SystemCase):
    @property
    def data(self):
        return os.path.join(self.store, "data.mdb")

    def make_store(self):
        """A store that a mirror wrote and left."""
        self.namespace.add_interface("a0", "10.0.0.1/24")
        mirror = self.start_mirror()
        eventually(lambda: os.path.exists(self.data), f"no {self.data}")
        self.namespace.add_address("a0", "10.0.0.2/24")
        self.assertEqual(mirror.stop(), 0)

    def overwrite(self, offset, data):
        with open(self.data, "r+b") as file:
            file.seek(offset)
            file.write(data)

    def expect_mirror_refuses(self):
        """One clear line with the place, a failure as the status, and not one byte of the file changed."""
        with open(self.data, "rb") as file:
            before = file.read()
        mirror = self.start_mirror()
        self.assertNotEqual(mirror.wait(), 0, mirror.output())
        self.assertEqual(len(mirror.lines()), 1, mirror.output())
        self.assertIn(self.store, mirror.lines()[0])
        with open(self.data, "rb") as file:
            self.assertEqual(file.read(), before, "the refused store was changed")
        return mirror.lines()[0]

    def expect_agent_says_so(self):
        """The agent lives, answers what needs no store, and has one line that names the store."""
        agent = self.start_agent()
        try:
            eventually(self.client.answers, "no answer")
            line = agent.wait_for_output(re.compile(re.escape(self.store)))
            self.assertEqual(self.client.ip_addr_rows(), {})
        finally:
            self.assertEqual(agent.stop(), 0)
        return line

    def expect_kernel_rows(self):
        eventually(lambda: self.client.ip_addr_rows() == kernel_rows(self.namespace),
                   lambda: f"agent {self.client.ip_addr_rows()}\nkernel {kernel_rows(self.namespace)}")

    def test_foreign_file(self):
        os.mkdir(self.store)
        for content in (b"not a store at all\n", os.urandom(16 * PAGE)):
            with self.subTest(size=len(content)):
                with open(self.data, "wb") as file:
                    file.write(content)
                self.expect_mirror_refuses()
                self.expect_agent_says_so()
        with self.subTest("an empty file is no one's"):
            os.truncate(self.data, 0)
            self.start_system()
            self.expect_kernel_rows()

    def test_damaged_pages(self):
        self.make_store()
        size = os.path.getsize(self.data)
        self.assertGreater(size, 4 * PAGE)
        self.overwrite(2 * PAGE, os.urandom(size - 2 * PAGE))
        self.expect_mirror_refuses()
        self.expect_agent_says_so()

    def test_cut_short(self):
        self.make_store()
        os.truncate(self.data, 3 * PAGE)
        self.expect_mirror_refuses()
        self.expect_agent_says_so()

    def test_other_version_and_a_new_beginning(self):
        self.make_store()
        with open(self.data, "rb") as file:
            data = file.read()
        self.assertIn(MAGIC, data)
        with open(self.data, "wb") as file:
            file.write(re.sub(MAGIC + b"(?s:.{8})", MAGIC + b"\x63\0\0\0\0\0\0\x63", data))
        for line in (self.expect_mirror_refuses(), self.expect_agent_says_so()):
            self.assertIn("version 99", line)
            self.assertIn("--recreate", line)
        with self.subTest("what the line advises helps"):
            self.start("quorin-mirrord", "-f", "--recreate", "--store", self.store)
            self.start_agent()
            self.wait_until_complete()
            self.expect_kernel_rows()

    def start_for_nobody(self, group, mode):
        """Mirror as root, agent as nobody, over a store directory of that group and mode."""
        os.chmod(self.directory, 0o755)
        os.chmod(self.configuration, 0o644)
        os.mkdir(self.store)
        shutil.chown(self.store, group=group)
        os.chmod(self.store, mode)
        self.start_mirror()
        return self.start_agent("-u", "nobody", "-g", "nogroup")

    def test_agent_that_may_not_register_as_a_reader_says_so(self):
        agent = self.start_for_nobody("root", 0o755)
        agent.wait_for_output(re.compile(re.escape(self.store)))
        self.assertTrue(self.client.answers())

    def test_agent_as_a_member_of_the_group_of_the_store(self):
        self.start_for_nobody("nogroup", 0o2750)
        self.wait_until_complete()
        self.namespace.add_interface("a0", "10.0.0.1/24")
        self.expect_kernel_rows()

    def test_damage_while_it_is_served(self):
        self.namespace.add_interface("a0", "10.0.0.1/24")
        self.start_system()
        self.expect_kernel_rows()
        self.mirror.signal(signal.SIGKILL)
        self.mirror.process.wait()
        self.overwrite(2 * PAGE, os.urandom(os.path.getsize(self.data) - 2 * PAGE))
        for _ in range(3):
            self.client.ip_addr_rows()
            self.assertTrue(self.client.answers())
        self.assertTrue(self.agent.running)
        with self.subTest("a new store heals it"):
            shutil.rmtree(self.store)
            self.start_mirror()
            self.namespace.add_address("a0", "10.0.0.2/24")
            self.expect_kernel_rows()

    def serve_neighbours(self, count):
        """As many of each family as that. Returns how the store writes the hardware address of the first."""
        self.namespace.add_interface("a0", "10.0.0.1/16", "2001:db8::1/64")
        self.namespace.ip_batch([f"neigh add {address} lladdr 02:00:5e:77:{n >> 8:02x}:{n & 255:02x} dev a0"
                                 for n in range(count)
                                 for address in (f"10.0.{1 + (n >> 8)}.{n & 255}", f"2001:db8::1:{n:x}")])
        self.client = Client(self.namespace, access=("-v2c", "-c", "private", "-Ox"))
        self.start_system()
        self.expect_neighbours(self.kernel_neighbours())
        self.mirror.signal(signal.SIGKILL)
        self.mirror.process.wait()
        self.mirror.is_expected_to_run = False
        return b"\x02\x00\x5e\x77\x00\x00"

    def kernel_neighbours(self):
        tables = kernel_tables(self.namespace)
        return {entry: tables[entry] for entry in (MEDIA, PHYSICAL)}

    def neighbours(self):
        return read_tables(self.client.bulk_walk("1.3.6.1.2.1.4"), (MEDIA, PHYSICAL), may_be_torn=True)

    def expect_neighbours(self, expected):
        eventually(lambda: self.neighbours() == expected,
                   lambda: f"agent {self.neighbours()}\nexpected {expected}")

    def pages_with(self, data):
        """Offsets of the pages of which a record has the data; a page has its records behind a gap, whose bytes mean
        nothing, and two bytes at offset 14 say where the gap ends."""
        with open(self.data, "rb") as file:
            pages = [file.read(PAGE) for _ in range(os.path.getsize(self.data) // PAGE)]
        return [number * PAGE for number, page in enumerate(pages)
                if number > 1 and data in page[int.from_bytes(page[14:16], "little"):]]

    def test_damage_to_one_neighbour(self):
        hardware = self.serve_neighbours(4)
        with open(self.data, "rb") as file:
            data = file.read()
        self.assertIn(hardware, data)
        with open(self.data, "r+b") as file:
            file.write(data.replace(hardware, b"\xff" + hardware[1:]))
        expected = self.kernel_neighbours()
        for entry, column, kind in ((MEDIA, 2, 4), (PHYSICAL, 4, 6)):
            for row in expected[entry].values():
                if row[column] == hardware.hex():
                    row.update({column: "", kind: DYNAMIC})
                else:
                    self.assertEqual(row[kind], STATIC)
        self.expect_neighbours(expected)
        for table in ("arp", "neighbor"):
            self.agent.wait_for_output(re.compile(f"{re.escape(self.store)} is damaged: table {table}, key .*checksum"))

        def is_settled():  # for two seconds, in which a store that is taken for damaged would be opened again
            said, end = self.agent.lines(), time.monotonic() + 2
            while time.monotonic() < end:
                if self.neighbours() != expected:
                    return False
            return self.agent.lines() == said

        eventually(is_settled, "one damage is said, or in the way, again and again")

    def test_damage_under_the_neighbour_map(self):
        self.serve_neighbours(500)
        addresses = kernel_rows(self.namespace)
        pages = self.pages_with(b"\x02\x00\x5e\x77")
        self.assertGreater(len(pages), 10)
        for at in pages:
            self.overwrite(at, os.urandom(PAGE))
        for _ in range(3):
            self.client.bulk_walk("1.3.6.1.2.1.4")
            self.assertTrue(self.client.answers())
            self.assertEqual(self.client.ip_addr_rows(), addresses)
        self.agent.wait_for_output(re.compile(re.escape(self.store)))
        self.assertTrue(self.agent.running)
        with self.subTest("the mirror refuses it, and a new beginning heals it"):
            line = self.expect_mirror_refuses()
            self.assertIn("--recreate", line)
            self.start("quorin-mirrord", "-f", "--recreate", "--store", self.store)
            self.expect_neighbours(self.kernel_neighbours())

    def test_store_removed_and_made_again_under_a_running_agent(self):
        self.namespace.add_interface("a0", "10.0.0.1/24")
        self.start_system()
        self.expect_kernel_rows()
        self.assertEqual(self.mirror.stop(), 0)
        shutil.rmtree(self.store)
        self.namespace.add_address("a0", "10.0.0.2/24")
        self.start_mirror()
        self.expect_kernel_rows()

    def test_directory_that_cannot_be_made(self):
        blocked = os.path.join(self.directory, "file")
        with open(blocked, "w", encoding="utf-8") as file:
            file.write("in the way\n")
        self.store = os.path.join(blocked, "store")
        mirror = self.start_mirror()
        self.assertNotEqual(mirror.wait(), 0)
        self.assertEqual(len(mirror.lines()), 1, mirror.output())
        self.assertIn(self.store, mirror.lines()[0])


if __name__ == "__main__":
    main()
