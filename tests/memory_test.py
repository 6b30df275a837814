"""Allocations that fail: a daemon ends, to be started anew; the plugin drops everything and builds it again."""

import os

from harness import eventually, main
from harness.kernel import kernel_tables
from harness.programs import BIN_DIR
from harness.snmp import SnmpError
from harness.snmpd import PLUGIN, SnmpdCase, plugin_environment
from harness.tables import CONTEXT_TABLES, TornWalk, walk_tables

FAILING_NEW = os.path.abspath(os.path.join(BIN_DIR, "..", "lib", "failing_new.so"))
ENDED = 71


def failing(number, times=1):
    """Every allocation of that number fails, so many times. Sanitizers have an allocator of their own."""
    runtime = plugin_environment().get("LD_PRELOAD", "")
    return {**plugin_environment(), "LD_PRELOAD": f"{FAILING_NEW}:{runtime}".strip(":"), "FAILING_NEW_AT": str(number),
            "FAILING_NEW_TIMES": str(times)}


class MemoryTest(SnmpdCase):
    def is_right(self):
        try:
            return walk_tables(self.client.impatient(), *CONTEXT_TABLES) == kernel_tables(self.namespace)
        except (TornWalk, SnmpError, KeyError):
            return False

    def change_until_right(self, program):
        """The rows become the kernel's, before and after changes, unless the program ends."""
        for number in range(3):
            program.is_expected_to_run = False
            eventually(lambda: not program.running or self.is_right(),
                       lambda: f"wrong rows; {program.name} said:\n{program.output()}", interval=0.05)
            self.namespace.ip(f"addr add 10.1.{number}.1/24 dev a0", f"route add 10.2.{number}.0/24 via 10.0.0.7",
                              f"neigh add 10.0.0.{20 + number} lladdr 02:00:00:00:00:20 dev a0")
        self.namespace.ip(*(line for number in range(3) for line in (
            f"addr del 10.1.{number}.1/24 dev a0", f"route del 10.2.{number}.0/24 via 10.0.0.7",
            f"neigh del 10.0.0.{20 + number} dev a0")))

    def expect_end_or_rows(self, start, restart):
        ends = 0
        for power in range(9):
            number = 400 * 2**power  # before, objects of static life are made
            with self.subTest(number):
                program = start(environment=failing(number))
                self.change_until_right(program)
                if program.running:
                    self.assertEqual(program.stop(), 0)
                else:
                    ends += 1
                    self.assertEqual(program.wait(), ENDED, program.output())
                    self.assertEqual(program.output().count("out of memory"), 1, program.output())
                    restart()
        self.assertGreater(ends, 3)

    def test_the_agent_ends(self):
        self.start_mirror()
        self.expect_end_or_rows(lambda **options: self.start_agent(**options), lambda: None)

    def test_the_mirror_ends(self):
        self.start_agent()

        def start(environment):
            return self.start("quorin-mirrord", "-f", "--store", self.store, "--netns-dir", self.vrfs.path,
                              environment=environment)

        def restart():
            mirror = start({})
            self.change_until_right(mirror)
            self.assertEqual(mirror.stop(), 0)
        self.expect_end_or_rows(start, restart)

    def test_the_plugin_starts_anew_in_its_snmpd(self):
        self.start_mirror()
        recoveries = 0
        for number in (700, 1500, 3100, 4000, 6500):
            with self.subTest(number):
                self.configure_snmpd(f"dlmod quorin {PLUGIN}", f"quorinStore {self.store}")
                snmpd = self.start_snmpd(environment=failing(number, 3))
                self.change_until_right(snmpd)
                self.assertTrue(snmpd.running, snmpd.output())
                recoveries += "read again from the store" in snmpd.output()
                self.assertEqual(snmpd.stop(), 0)
        self.assertGreater(recoveries, 3)

    def test_the_plugin_lets_its_snmpd_end(self):
        self.start_mirror()
        for number in (1, 20):
            with self.subTest(number):
                self.configure_snmpd(f"dlmod quorin {PLUGIN}", f"quorinStore {self.store}")
                ending = os.path.join(self.directory, f"ending{number}")
                snmpd = self.start_snmpd(environment={**failing(number, 3), "FAILING_NEW_FROM": ending})
                eventually(self.is_right, snmpd.output, interval=0.05)
                open(ending, "x", encoding="utf-8").close()
                self.assertEqual(snmpd.stop(), 0, snmpd.output())


if __name__ == "__main__":
    main()
