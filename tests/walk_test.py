"""Walks while rows come and go."""

import random

from harness import SystemCase, SnmpError, background, eventually, main
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

    def churn(self, hosts):
        """Adds and deletes 10.0.1.<host> in the background, in no order."""
        choice, present = random.Random(7), set()

        def change():
            lines = []
            for host in choice.sample(hosts, 10):
                lines.append(f"addr {'del' if host in present else 'add'} 10.0.1.{host}/32 dev a0")
                present.symmetric_difference_update({host})
            self.namespace.ip_batch(lines)

        return background(change)

    def test_walks_during_changes_are_in_order_and_keep_every_row_that_stays(self):
        stay = [f"10.0.1.{host}" for host in range(0, 250, 2)]
        self.serve(*stay)
        changed = 0
        with self.churn(list(range(1, 250, 2))):
            number = 0
            while number < 30 or not changed:
                number += 1
                walk = (self.client.walk, self.client.bulk_walk)[number % 2]
                try:
                    # The tools themselves stop with "OID not increasing" on a row out of order or repeated.
                    walked = [bind.value for bind in walk(ADDRESS_COLUMN)]
                except SnmpError as error:
                    self.fail(f"walk {number}: {error.reason}")
                self.assertEqual(len(walked), len(set(walked)), f"walk {number} repeats a row")
                self.assertLessEqual(set(stay), set(walked), f"walk {number} misses rows that stayed")
                changed += len(walked) != len(stay) + 1


if __name__ == "__main__":
    main()
