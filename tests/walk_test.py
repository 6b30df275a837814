"""Walks while rows come and go."""

import random

from harness import SystemCase, background, main
from harness.tables import ADDR, ROUTE, walk_table, walk_tables

STAY, CHANGED = range(0, 200, 2), range(1, 200, 2)  # numbers of rows


def lines(verb, numbers):
    for number in numbers:
        yield f"addr {verb} 10.1.0.{number}/32 dev a0"
        yield f"route {verb} 20.0.{number}.0/24 via 10.0.0.{number % 9 + 2}"


class WalkTest(SystemCase):
    def test_walks_during_changes_are_in_order_and_keep_every_row_that_stays(self):
        self.namespace.add_interface("a0", "10.0.0.1/24")
        self.start_system()
        self.namespace.ip(*lines("add", STAY))
        self.expect_context()
        choice, present, seen = random.Random(7), set(), set()

        def change():
            numbers = set(choice.sample(CHANGED, 20))
            self.namespace.ip(*lines("del", numbers & present), *lines("add", numbers - present))
            present.symmetric_difference_update(numbers)

        with background(change) as failures:
            walks = 0
            while not failures and (walks < 40 or len(seen) < 5):
                # The tools themselves stop with "OID not increasing" on a row out of order or repeated.
                tables = walk_tables(self.client, ADDR, ROUTE, may_be_torn=True, tool=("walk", "bulk_walk")[walks % 2])
                walks += 1
                self.assertLessEqual({(10, 1, 0, n) for n in STAY}, set(tables[ADDR]))
                self.assertLessEqual({(20, 0, n, 0) for n in STAY}, {index[:4] for index in tables[ROUTE]})
                seen.add(tuple(tables[ADDR]))
        self.expect_context()
        with self.subTest("GETNEXT from a row that is gone"):
            self.namespace.ip(*lines("del", [6]))
            self.expect_context()
            for entry, gone in ((ADDR, (10, 1, 0, 6)), (ROUTE, (20, 0, 6, 0))):
                following = min(index for index in walk_table(self.client, entry) if index > gone)
                asked, found = (f"{entry}.2." + ".".join(map(str, index)) for index in (gone, following))
                self.assertEqual(self.client.get_next(asked)[0].oid, found)


if __name__ == "__main__":
    main()
