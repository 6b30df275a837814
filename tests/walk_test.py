"""Walks while rows come and go."""

import contextlib
import random
import threading

from harness import SystemCase, SnmpError, eventually, main
from harness.snmp import IP_ADDR_ENTRY

ADDRESS_COLUMN = f"{IP_ADDR_ENTRY}.1"


class WalkTest(SystemCase):
    def setUp(self):
        super().setUp()
        self.start_system()
        self.namespace.add_interface("a0")

    def serve(self, *addresses):
        self.namespace.ip_batch([f"addr add {address}/32 dev a0" for address in addresses])
        eventually(lambda: set(addresses) <= set(self.client.ip_addr_rows()), f"{addresses} not served")

    def drop(self, address):
        self.namespace.del_address("a0", f"{address}/32")
        eventually(lambda: not self.client.get(f"{ADDRESS_COLUMN}.{address}")[0].exists, f"{address} still served")

    def test_get_next_from_a_row_that_is_gone(self):
        self.serve("10.0.0.1", "10.0.0.2", "10.0.0.3")
        self.drop("10.0.0.1")
        for column in range(1, 6):
            entry = f"{IP_ADDR_ENTRY}.{column}"
            self.assertEqual(self.client.get_next(f"{entry}.10.0.0.1")[0].oid, f"{entry}.10.0.0.2")
        self.drop("10.0.0.3")
        self.assertEqual(self.client.get_next(f"{ADDRESS_COLUMN}.10.0.0.2")[0].value, "127.0.0.1")

    def test_get_next_from_every_kind_of_index(self):
        self.serve("10.0.0.1", "10.0.0.200")
        cases = {
            "1.3.6.1.2.1.4.20": "1.10.0.0.1", "1.3.6.1.2.1.4.20.1": "1.10.0.0.1", ADDRESS_COLUMN: "1.10.0.0.1",
            f"{ADDRESS_COLUMN}.10": "1.10.0.0.1", f"{ADDRESS_COLUMN}.10.0.0": "1.10.0.0.1",
            f"{ADDRESS_COLUMN}.10.0.0.1": "1.10.0.0.200", f"{ADDRESS_COLUMN}.10.0.0.1.0": "1.10.0.0.200",
            f"{ADDRESS_COLUMN}.10.0.0.199": "1.10.0.0.200", f"{ADDRESS_COLUMN}.10.0.0.200": "1.127.0.0.1",
            f"{ADDRESS_COLUMN}.127.0.0.1": "2.10.0.0.1", f"{ADDRESS_COLUMN}.255.255.255.255": "2.10.0.0.1",
            f"{ADDRESS_COLUMN}.10.0.300.1": "1.127.0.0.1", f"{ADDRESS_COLUMN}.4294967295": "2.10.0.0.1",
            f"{IP_ADDR_ENTRY}.0": "1.10.0.0.1",
        }
        for oid, expected in cases.items():
            with self.subTest(oid=oid):
                self.assertEqual(self.client.get_next(oid)[0].oid, f"{IP_ADDR_ENTRY}.{expected}")
        with self.subTest("past the table"):
            for oid in (f"{IP_ADDR_ENTRY}.5.127.0.0.1", f"{IP_ADDR_ENTRY}.6", f"{IP_ADDR_ENTRY}.99.1"):
                self.assertFalse(self.client.get_next(oid)[0].oid.startswith(IP_ADDR_ENTRY + "."), oid)

    def test_get_of_what_is_not_there(self):
        self.serve("10.0.0.1")
        for oid in (f"{ADDRESS_COLUMN}.10.0.0.2", f"{ADDRESS_COLUMN}.10.0.0", f"{ADDRESS_COLUMN}.10.0.0.1.1",
                    f"{ADDRESS_COLUMN}.10.0.0.256", f"{IP_ADDR_ENTRY}.6.10.0.0.1", f"{IP_ADDR_ENTRY}.0.10.0.0.1"):
            with self.subTest(oid=oid):
                self.assertRegex(self.client.get(oid)[0].value, "^No Such (Instance|Object)")
        with self.subTest("beside one that is"):
            there, missing = self.client.get(f"{ADDRESS_COLUMN}.10.0.0.1", f"{ADDRESS_COLUMN}.10.0.0.2")
            self.assertEqual((there.value, missing.exists), ("10.0.0.1", False))

    @contextlib.contextmanager
    def churn(self, hosts):
        """Adds and deletes 10.0.1.<host> in the background, in no order, until the block ends."""
        ended, failures = threading.Event(), []

        def change():
            choice, present = random.Random(7), set()
            try:
                while not ended.is_set():
                    lines = []
                    for host in choice.sample(hosts, 10):
                        lines.append(f"addr {'del' if host in present else 'add'} 10.0.1.{host}/32 dev a0")
                        present ^= {host}
                    self.namespace.ip_batch(lines)
            except Exception as error:  # handed to the test's own thread
                failures.append(error)

        thread = threading.Thread(target=change)
        thread.start()
        try:
            yield
        finally:
            ended.set()
            thread.join()
        self.assertEqual(failures, [])

    def test_walks_during_changes_are_in_order_and_keep_every_row_that_stays(self):
        stay = [f"10.0.1.{host}" for host in range(0, 250, 2)]
        self.serve(*stay)
        changed = 0
        with self.churn(list(range(1, 250, 2))):
            for number in range(30):
                walk = (self.client.walk, self.client.bulk_walk)[number % 2]
                try:
                    # The tools themselves stop with "OID not increasing" on a row out of order or repeated.
                    walked = [bind.value for bind in walk(ADDRESS_COLUMN)]
                except SnmpError as error:
                    self.fail(f"walk {number}: {error.reason}")
                self.assertEqual(len(walked), len(set(walked)), f"walk {number} repeats a row")
                self.assertLessEqual(set(stay), set(walked), f"walk {number} misses rows that stayed")
                changed += len(walked) != len(stay) + 1
        self.assertGreater(changed, 0, "no walk saw a row that comes and goes")


if __name__ == "__main__":
    main()
