"""quorinctl dump and load: a store that is dumped and loaded again is served alike; and ./run --demo."""

import os
import signal
import subprocess

from harness import SystemCase, eventually, main
from harness.programs import BIN_DIR
from harness.snmp import Client
from harness.tables import ENTERPRISE, SW_FWD, text_value
from harness.tools import run_command

ROOT = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
QUORINCTL = os.path.join(BIN_DIR, "quorinctl")
SECOND = "udp:127.0.0.1:1162"
NAMES = ("red", "two words", "back\\slash", b"\xff\x80".decode("utf-8", "surrogateescape"), "empty")
SETTINGS = """
vrfs:
  default: {staticRoutes: [{prefix: 10.3.0.0/16, nexthopGroup: true}, {prefix: 10.3.0.0/16, preference: 9}]}
  red: {routeDistinguisher: "65000:1", staticRoutes: [{prefix: "2001:db8:3::/48", persistent: false}]}
"""


def contents(mark):
    return ["link add a0 type veth peer name a0-p", "link set a0-p up", "link set a0 up",
            "link add down0 type veth peer name down0-p", "addr add 10.200.0.1/24 dev down0",
            f"addr add 10.{mark}.0.1/8 dev a0", f"addr add 10.{mark}.1.1/8 dev a0", "addr add 2001:db8::1/64 dev a0 nodad",
            f"neigh add 10.{mark}.0.9 lladdr 02:00:00:00:00:{mark:02x} dev a0",
            "neigh add 2001:db8::9 lladdr 02:00:00:00:00:09 dev a0",
            "route add 10.3.0.0/16 proto static nexthop via 10.0.0.8 dev a0 nexthop via 10.0.0.9 dev a0",
            "route add 10.4.0.0/16 proto bgp metric 20 via 10.0.0.9 dev a0", "route add blackhole 10.5.0.0/16",
            "route add prohibit 10.5.1.0/24", "route add unreachable 2001:db8:9::/48",
            "route add 2001:db8:3::/48 via 2001:db8::9 dev a0", "route add 10.6.0.0/16 proto ospf dev a0"]


class SwitchFileTest(SystemCase):
    def served(self, address):
        """Everything below ip and our enterprise in every context, but for what the kernel counts meanwhile."""
        contexts = {}
        for name in ("", *NAMES):
            client = Client(self.namespace, address, self.user(name).access)
            self.wait_for_context(client)
            contexts[name] = {bind.oid: text_value(bind) for root in ("1.3.6.1.2.1.4", f"{ENTERPRISE}.3")
                              for bind in client.walk(root) if not bind.oid.startswith(SW_FWD)}
        return contexts

    def test_a_dumped_store_is_served_alike(self):
        self.namespace.ip(*contents(1))
        self.namespace.sysctl("net.ipv4.ip_forward", 1)
        for mark, name in enumerate(NAMES[:-1], 2):
            self.vrfs.add(name, *contents(mark))
        self.vrfs.add(NAMES[-1])
        self.start_mirror("--config", self.write_file("mirror.yaml", SETTINGS))
        self.start_agent()
        self.wait_until_complete()
        for name in NAMES:
            self.expect_context(name, self.user(name))

        def quorinctl(*arguments, **options):
            return subprocess.run([QUORINCTL, *arguments], capture_output=True, check=False, timeout=60, **options)

        example = os.path.join(ROOT, "examples", "leaf-switch.yaml")
        refused = quorinctl("load", example, "--store", self.store)
        self.assertEqual(refused.returncode, 2)
        self.assertIn(f"quorin-mirrord (pid {self.mirror.pid})", refused.stderr.decode())
        self.assertEqual(self.mirror.stop(), 0)  # so that counters stand still
        dump = quorinctl("dump", "--store", self.store)
        self.assertEqual((dump.returncode, dump.stderr), (0, b""))

        copy = os.path.join(self.directory, "copy")
        wrong = quorinctl("load", "-", "--store", copy, input=dump.stdout + b"documents: 7\n")
        self.assertEqual((wrong.returncode, os.path.exists(copy)), (3, False), wrong.stderr)
        self.assertIn(b"'documents' is there twice", wrong.stderr)
        path = os.path.join(self.directory, "switch.yaml")
        with open(path, "wb") as file:
            file.write(dump.stdout)
        loader = self.start("quorinctl", "load", path, "--store", copy)
        loader.wait_for_output("SIGHUP reads the file again")
        self.agent.stop()
        self.start_agent()  # as the second one, it starts after the counters' discontinuities
        self.start("quorind", "-f", "-C", "-c", self.configuration, "--store", copy, SECOND,
                   environment={"SNMP_PERSISTENT_DIR": os.path.join(self.directory, "second")})
        eventually(lambda: len(self.served(SECOND)["red"]) > 200, "the rows of all tables")

        def expect_alike():
            self.expect(lambda: self.served(SECOND), lambda: self.served(self.agent_address), "the copy")

        expect_alike()
        with open(path, "ab") as file:
            file.write(b"documents: 7\n")
        loader.process.send_signal(signal.SIGHUP)
        loader.wait_for_output("'documents' is there twice.*what was published stays")
        expect_alike()

    def test_demo(self):
        done = run_command(self.namespace.wrap(["env", f"QUORIN_BIN_DIR={os.path.abspath(BIN_DIR)}",
                                                os.path.join(ROOT, "run"), "--demo", "--once"]))
        self.assertIn(".1.3.6.1.2.1.4.20.1.2.10.10.0.1 = INTEGER: 10010\n", done.stdout)
        self.assertIn(".1.3.6.1.2.1.4.24.3.0 = Gauge32: 2500\n", done.stdout)
        self.assertIn("== quorinctl status\nOK", done.stdout)


if __name__ == "__main__":
    main()
