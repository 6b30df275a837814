"""Agent and mirror in every order, and every way for the mirror to end."""

import os
import pathlib
import socket
import subprocess

from harness import SystemCase, background, eventually, main
from harness.snmp import IP_FORWARDING
from harness.tools import PATIENCE


class Manager:
    """A service manager's end of sd_notify(3)."""

    def __init__(self, path):
        self.socket = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
        self.socket.bind(path)
        self.socket.settimeout(PATIENCE)
        self.environment = {"NOTIFY_SOCKET": path, "WATCHDOG_USEC": "30000000"}

    def wait_for(self, state):
        """Returns the states that come until one begins so, that one included."""
        states = []
        while not states or not any(line.startswith(state) for line in states[-1].splitlines()):
            states.append(self.socket.recv(4096).decode())
        return "\n".join(states)


class PublisherTest(SystemCase):
    def test_agent_first_says_what_it_waits_for(self):
        agent = self.start_agent()
        eventually(self.client.answers, "sysUpTime without a publisher")
        line = agent.wait_for_output(r"(?i)\bwait")
        self.assertIn(self.store, line)
        self.assertEqual(agent.output().lower().count(" wait"), 1, "said more than once")
        self.assertEqual(self.addresses(), {})
        self.assertFalse(self.client.has(IP_FORWARDING), "nobody has said whether this router forwards")
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
                self.namespace.ip(f"addr add 10.1.0.{number + 10}/24 dev a1", "addr del 10.0.0.2/24 dev a0",
                                  *([f"route del 20.{number - 1}.5.0/24"] if number else []))
                self.namespace.sysctl("net.ipv4.ip_forward", 1 - number % 2)
                self.start_mirror()
                self.expect_context()
                # The next mirror is killed in the midst of writing these.
                self.namespace.ip("addr add 10.0.0.2/24 dev a0", *(
                    line for n in range(1000) for line in (
                        f"addr add 10.{2 + number}.{n // 250}.{n % 250}/32 dev a0",
                        f"route add 20.{number}.{n // 4}.{n % 4 * 64}/26 via 10.0.0.{n % 7 + 3}")),
                    f"route replace 20.{number}.5.0/24 via 10.0.0.9")
        self.expect_context()
        self.assertTrue(self.agent.running)

    def test_both_report_to_a_service_manager(self):
        agents, mirrors = (Manager(os.path.join(self.directory, name)) for name in ("agents", "mirrors"))
        agent = self.start_agent(environment=agents.environment)
        self.assertRegex(agents.wait_for("READY=1"), f"STATUS=.*{self.agent_address}", "ready without a publisher")
        agents.wait_for("WATCHDOG=1")
        self.vrfs.add("red")
        mirror = self.start_mirror(environment=mirrors.environment)
        self.assertIn(f"2 VRFs in {self.store}", mirrors.wait_for("READY=1"))
        mirrors.wait_for("WATCHDOG=1")
        self.vrfs.remove("red")
        mirrors.wait_for("STATUS=publishing 1 VRF in")
        with self.subTest("a new image of the mirror goes on"):
            data = pathlib.Path(self.store, "data.mdb")
            with data.open("r+b") as file:
                file.seek(8192)
                file.write(b"x" * (data.stat().st_size - 8192))
            pathlib.Path(self.store, "damage").write_text("x", encoding="utf-8")  # a reader's report
            mirrors.wait_for("READY=1")
            mirrors.wait_for("WATCHDOG=1")
        for manager, program in ((agents, agent), (mirrors, mirror)):
            self.assertEqual(program.stop(), 0)
            manager.wait_for("STOPPING=1")

    def test_mirror_stops_under_changes_without_end(self):
        self.namespace.add_interface("a0", "10.0.0.1/24")
        mirror = self.start_mirror()
        changes = [f"route {verb} 20.{n >> 8}.{n & 255}.0/24 via 10.0.0.2\n" for verb in ("add", "del") for n in range(20000)]
        flood = subprocess.Popen(self.namespace.wrap(["ip", "-batch", "-"]), stdin=subprocess.PIPE, text=True)
        doorbell = pathlib.Path(self.store, "doorbell")  # has the head of the journal
        with background(lambda: flood.stdin.writelines(changes)):
            eventually(lambda: doorbell.exists() and int.from_bytes(doorbell.read_bytes(), "little") > 5000,
                       "the changes do not come to the store")
            self.assertEqual(mirror.stop(), 0)
        flood.communicate()
        self.assertEqual(flood.returncode, 0)


if __name__ == "__main__":
    main()
