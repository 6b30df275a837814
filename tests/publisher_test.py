"""Agent and mirror in every order, and every way for the mirror to end."""

import os
import subprocess

from harness import SystemCase, background, eventually, main
from harness.kernel import kernel_tables
from harness.snmp import IP_FORWARDING
from harness.tables import ROUTE, numbers


class PublisherTest(SystemCase):
    def test_agent_first_says_what_it_waits_for(self):
        agent = self.start_agent()
        eventually(self.client.answers, "sysUpTime without a publisher")
        line = agent.wait_for_output(r"(?i)\bwait")
        self.assertIn(self.store, line)
        self.assertEqual(agent.output().lower().count(" wait"), 1, "said more than once")
        self.assertEqual(self.addresses(), {})
        self.namespace.add_interface("a0", "10.0.0.1/24")
        mirror = self.start_mirror()
        self.wait_until_complete()
        self.expect_context()
        self.assertEqual(agent.stop(), 0)
        with self.subTest("the mirror was first"):
            self.start_agent()
            self.wait_until_complete()
            self.expect_context()
        self.assertEqual([mirror.stop(), self.agent.stop()], [0, 0])

    def test_mirror_killed_and_started_again(self):
        self.namespace.add_interface("a0", "10.0.0.1/24", "10.0.0.2/24")
        self.namespace.add_interface("a1", "10.1.0.1/24")
        self.start_system()
        for number in range(4):
            with self.subTest("changes while there is no mirror", number=number):
                self.mirror.kill()
                self.namespace.ip(f"addr add 10.1.0.{number + 10}/24 dev a1", "addr del 10.0.0.2/24 dev a0")
                self.namespace.sysctl("net.ipv4.ip_forward", 1 - number % 2)
                self.start_mirror()
                self.expect_context()
                expected = str(1 + number % 2)
                eventually(lambda: self.client.get(IP_FORWARDING)[0].value == expected, "old ipForwarding")
                # The next mirror is killed in the midst of writing these.
                self.namespace.ip("addr add 10.0.0.2/24 dev a0", *(
                    f"addr add 10.{2 + number}.{host // 250}.{host % 250}/32 dev a0" for host in range(1000)))
        self.expect_context()
        self.assertTrue(self.agent.running)

    def test_mirror_killed_while_it_loads_routes(self):
        self.namespace.add_interface("a0", "10.0.0.1/24")
        self.namespace.ip(*(f"route add {20 + (n >> 16)}.{n >> 8 & 255}.{n & 255}.0/24 via 10.0.0.{n % 7 + 2}"
                            for n in range(100_000)))
        self.start_mirror()
        self.start_agent()
        eventually(lambda: self.client.impatient().answers(), "no answer")
        eventually(lambda: self.client.get_next(f"{ROUTE}.1.20")[0].oid.startswith(f"{ROUTE}.1.20."), "no route comes")
        self.mirror.kill()
        self.namespace.ip("route del 20.0.5.0/24")
        self.start_mirror()
        expected = {(4, *index): row[4] for index, row in kernel_tables(self.namespace, entries=[ROUTE])[ROUTE].items()}

        def served():  # one column, since a walk of all takes a minute
            column = self.client.bulk_walk(f"{ROUTE}.4")
            return {ROUTE: {numbers(bind.oid)[len(numbers(ROUTE)):]: bind.value for bind in column}}

        self.expect(served, lambda: {ROUTE: expected}, "routes")

    def test_mirror_stops_under_changes_without_end(self):
        self.namespace.add_interface("a0", "10.0.0.1/24")
        mirror = self.start_mirror()
        changes = [f"route {verb} 20.{n >> 8}.{n & 255}.0/24 via 10.0.0.2\n" for verb in ("add", "del") for n in range(20000)]
        flood = subprocess.Popen(self.namespace.wrap(["ip", "-batch", "-"]), stdin=subprocess.PIPE, text=True)

        def journal_head():
            try:
                with open(os.path.join(self.store, "doorbell"), "rb") as file:
                    return int.from_bytes(file.read(), "little")
            except FileNotFoundError:
                return 0

        with background(lambda: flood.stdin.writelines(changes)):
            eventually(lambda: journal_head() > 5000, "the changes do not come to the store")
            self.assertEqual(mirror.stop(), 0)
        flood.communicate()
        self.assertEqual(flood.returncode, 0)


if __name__ == "__main__":
    main()
