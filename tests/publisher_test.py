"""Agent and mirror in every order, and every way for the mirror to end."""

import os
import re
import signal
import subprocess

from harness import SystemCase, background, eventually, main
from harness.snmp import IP_FORWARDING

WAITING = re.compile(r"\bwait", re.IGNORECASE)


class PublisherTest(SystemCase):
    def test_agent_first_says_what_it_waits_for(self):
        agent = self.start_agent()
        eventually(self.client.answers, "sysUpTime without a publisher")
        line = agent.wait_for_output(WAITING)
        self.assertIn(self.store, line)
        self.assertEqual([said for said in agent.lines() if WAITING.search(said)], [line], "said more than once")
        self.assertEqual(self.client.ip_addr_rows(), {})
        self.namespace.add_interface("a0", "10.0.0.1/24")
        mirror = self.start_mirror()
        self.wait_until_complete()
        self.expect_rows()
        self.assertEqual([mirror.stop(), agent.stop()], [0, 0])

    def test_mirror_first(self):
        self.namespace.add_interface("a0", "10.0.0.1/24")
        self.mirror = self.start_mirror()
        eventually(lambda: self.namespace.run("ls", self.store, check=False).stdout, "the mirror makes no store")
        agent = self.start_agent()
        self.wait_until_complete()
        self.expect_rows()
        with self.subTest("the agent stopped and started again"):
            self.assertEqual(agent.stop(), 0)
            self.start_agent()
            self.wait_until_complete()
            self.expect_rows()

    def test_mirror_killed_and_started_again(self):
        self.namespace.add_interface("a0", "10.0.0.1/24", "10.0.0.2/24")
        self.namespace.add_interface("a1", "10.1.0.1/24")
        self.start_system()
        for number in range(3):
            with self.subTest("changes while there is no mirror", number=number):
                self.mirror.signal(signal.SIGKILL)
                self.mirror.process.wait()
                self.namespace.add_address("a1", f"10.1.0.{number + 10}/24")
                self.namespace.del_address("a0", "10.0.0.2/24")
                self.namespace.sysctl("net.ipv4.ip_forward", 1 - number % 2)
                self.mirror = self.start_mirror()
                self.expect_rows()
                expected = str(1 + number % 2)
                eventually(lambda: self.client.get(IP_FORWARDING)[0].value == expected, "old ipForwarding")
                self.namespace.add_address("a0", "10.0.0.2/24")
                self.expect_rows()
        self.assertTrue(self.agent.running)

    def test_mirror_killed_in_the_midst_of_writing(self):
        self.start_system()
        self.namespace.add_interface("a0")
        for number in range(5):
            adds = [f"addr add 10.{number}.{host // 250}.{host % 250}/32 dev a0" for host in range(1000)]
            self.namespace.ip_batch(adds)
            self.mirror.signal(signal.SIGKILL)
            self.mirror.process.wait()
            self.mirror = self.start_mirror()
        self.expect_rows()
        self.assertEqual(len(self.client.ip_addr_rows()), 5001)

    def test_mirror_stops_under_changes_without_end(self):
        self.namespace.add_interface("a0", "10.0.0.1/24")
        mirror = self.start_mirror()
        changes = [f"route {verb} 20.{n >> 8}.{n & 255}.0/24 via 10.0.0.2\n" for verb in ("add", "del") for n in range(20000)]
        flood = subprocess.Popen(self.namespace.ip_command("-batch", "-"), stdin=subprocess.PIPE, text=True)

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
