"""A store that is damaged, foreign, of another version, unreadable, or taken away."""

import os
import re
import shutil

from harness import SnmpError, SystemCase, eventually, main
from harness.kernel import DYNAMIC, kernel_tables
from harness.tables import IP_TABLES, MEDIA, PHYSICAL, walk_tables
from harness.tools import read_file

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

    def test_whatever_the_mirror_finds(self):
        self.namespace.add_interface("a0", "10.0.0.1/24", "10.0.0.2/24")
        self.start_system()
        self.expect_context()
        good = self.read()
        other = re.sub(MAGIC + b"(?s:.{8})", MAGIC + b"\x63\0\0\0\0\0\0\x63", good)
        for what, content, word in (
                ("a text", b"not a store at all\n", "first pages"), ("cut short", good[:3 * PAGE], "damaged"),
                ("noise behind the first pages", good[:2 * PAGE] + os.urandom(len(good) - 2 * PAGE), "damaged"),
                ("version 99", other, "version 99")):
            with self.subTest(what):
                self.assertEqual(self.mirror.stop(), 0)
                with open(self.data, "wb") as file:
                    file.write(content)
                self.assertTrue(self.client.answers())
                self.start_mirror()
                self.assertRegex(self.mirror.wait_for_output(re.escape(self.store)), f"{word}.* makes it anew")
                self.expect_context()
        with self.subTest("a file of somebody else"):
            self.assertEqual(self.mirror.stop(), 0)
            shutil.rmtree(self.store)
            os.mkdir(self.store)
            with open(self.data, "wb") as file:
                file.write(b"not a store at all\n")
            self.assertIn("--recreate", self.expect_mirror_refuses())
            self.assertEqual(self.read(), b"not a store at all\n")
            self.start_mirror("--recreate")
            self.expect_context()

    def test_files_that_are_taken_away(self):
        self.namespace.add_interface("a0", "10.0.0.1/24")
        self.start_system()
        self.expect_context()
        running = self.mirror
        for number, name in enumerate(("publisher.lock", "lock.mdb", "doorbell", "damage", "data.mdb", "", "lock.mdb cut short")):
            with self.subTest(name):
                path = os.path.join(self.store, name.split(" ")[0])
                if not name:
                    os.rename(self.store, self.store + ".aside")
                elif "cut" in name:
                    os.truncate(path, 0)
                else:
                    os.unlink(path)
                if name:
                    self.assertIn("already", self.expect_mirror_refuses())
                self.namespace.ip(f"addr add 10.0.1.{number}/24 dev a0")
                self.expect_context()
                self.assertTrue(running.running and self.agent.running)
                self.assertIn("already", self.expect_mirror_refuses())
        bell = os.path.join(self.store, "doorbell")
        os.unlink(bell)
        os.symlink("/dev/null", bell)
        running.wait_for_output("doorbell is a symbolic link.*trying again")
        self.namespace.ip("addr add 10.0.2.1/24 dev a0")
        os.unlink(bell)
        self.expect_context()
        self.assertEqual(running.stop(), 0)

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

    def walk_over_damage(self):
        """A search that gives up among damaged records is genErr."""
        try:
            self.client.walk("1.3.6.1.2.1.4")
        except SnmpError as error:
            self.assertEqual(str(error), "genError")

    def test_damage_while_it_is_served(self):
        self.namespace.sysctl("net.ipv6.conf.default.accept_dad", 0)  # no address changes once its mirror is gone
        self.namespace.add_interface("a0", "10.0.0.1/16", "2001:db8::1/64")
        self.namespace.ip(*(f"neigh add {address} lladdr 02:00:5e:77:{n >> 8:02x}:{n & 255:02x} dev a0"
                            for n in range(500) for address in (f"10.0.{1 + (n >> 8)}.{n & 255}", f"2001:db8::1:{n:x}")))
        self.start_system()
        self.expect_context()
        with self.subTest("the mirror writes it anew"):
            self.vrfs.add("blue")
            self.expect_vrf_tables()
            self.vrfs.add("red", "link add r0 type veth peer name b0", "link set r0 up", "addr add 10.0.0.1/24 dev r0")
            self.expect_vrf_tables()
            self.vrfs.remove("blue")
            self.expect_vrf_tables()
            pid, number = self.mirror.pid, self.vrf_id("red")
            self.overwrite(0, self.read().replace(bytes.fromhex("02005e7700"), bytes.fromhex("ff005e7700")))
            self.walk_over_damage()
            self.mirror.wait_for_output(f"{re.escape(self.store)} is damaged: .* makes it anew; this process starts")
            self.expect_context()
            self.assertIn(f"REPLACED_IMAGE={pid} ", read_file(f"/proc/{pid}/environ"), "nothing of its memory stays")
            self.assertRegex(read_file(f"/proc/{pid}/status"), "(?s)Name:\tquorin-mirrord\n.*\nSeccomp:\t2\n")
            self.numbers.clear()
            self.assertEqual(self.vrf_id("red"), number, "which no kernel knows")
            self.vrfs.remove("red")
            self.expect_vrf_tables()
        self.mirror.kill()
        with self.subTest("the records of a neighbour, and the documents of its interface's address"):
            first = bytes.fromhex("02005e770000")
            self.overwrite(0, self.read().replace(first, b"\xff" + first[1:]).replace(b'"10.0.0.1/16"', b'"10.0.0.9/16"'))
            expected = kernel_tables(self.namespace, entries=IP_TABLES)
            for entry, column, kind in ((MEDIA, 2, 4), (PHYSICAL, 4, 6)):
                damaged = [row for row in expected[entry].values() if row[column] == first.hex()]
                self.assertGreater(len(damaged), 0)
                for row in damaged:
                    del row[column], row[kind]
                    if entry == MEDIA:
                        row[kind] = DYNAMIC
            for _ in range(2):  # the second time after all documents were read anew
                self.expect(lambda: walk_tables(self.client, *IP_TABLES, may_be_torn=True), lambda: expected,
                            "all but what is damaged")
                for table in ("arp", "neighbor", "varnix"):
                    self.agent.wait_for_output(f"{re.escape(self.store)} is damaged: table {table}, key .*checksum")
        for is_healed_in_place in (True, False):
            with self.subTest("noise behind the first pages", is_healed_in_place=is_healed_in_place):
                addresses = self.addresses()
                self.overwrite(2 * PAGE, os.urandom(os.path.getsize(self.data) - 2 * PAGE))
                for _ in range(3):
                    self.walk_over_damage()
                    self.assertEqual(self.addresses(), addresses)
                if not is_healed_in_place:
                    shutil.rmtree(self.store)
                self.namespace.ip(f"addr add 10.0.0.{2 + is_healed_in_place}/24 dev a0")
                self.start_mirror()
                self.expect_context()
            self.mirror.kill()


if __name__ == "__main__":
    main()
