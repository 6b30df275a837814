"""Debian's own snmpd, in a private configuration, and what it serves by itself."""

import os
import subprocess
import unittest

from harness.case import SystemCase
from harness.programs import BIN_DIR
from harness.snmp import SYSTEM
from harness.tables import ADDR, IP
from harness.tools import eventually

SNMPD = "/usr/sbin/snmpd"
PLUGIN = os.path.abspath(os.path.join(BIN_DIR, "..", "lib", "quorin.so"))
LISTEN = "udp:127.0.0.1:1162"
# The tables and scalars of the IP group that the library takes over (21 answers nothing); all else stays snmpd's.
OURS = tuple(f"{IP}.{number}." for number in (
    1, 20, 21, 22, 25, 27, 28, 29, 30, 31, 32, 34, 35, 37, "24.3", "24.4", "24.6", "24.7"))


def plugin_environment():
    """A plugin built with the address sanitizer needs its runtime, and that of C++, in the process from the start."""
    needed = subprocess.run(["ldd", PLUGIN], capture_output=True, text=True, check=True).stdout
    runtime = [line.split()[2] for line in needed.splitlines() if "libasan" in line or "libstdc++" in line]
    if "libasan" not in needed:
        return {}
    return {"LD_PRELOAD": ":".join(sorted(runtime)), "ASAN_OPTIONS": "detect_leaks=0"}


@unittest.skipUnless(os.path.exists(SNMPD), "Debian's package snmpd is not installed")
class SnmpdCase(SystemCase):
    """A case whose clients ask a stock snmpd, over an interface with addresses of both families and a neighbour."""

    agent_address = LISTEN

    def setUp(self):
        super().setUp()
        self.socket = os.path.join(self.directory, "agentx")
        self.namespace.sysctl("net.ipv6.conf.default.accept_dad", 0)
        self.namespace.add_interface("a0", "10.0.0.1/24", "2001:db8::1/64")
        eventually(self.is_settled, "the interfaces have no link-local addresses")
        self.namespace.ip("neigh add 10.0.0.7 lladdr 02:00:00:00:00:07 dev a0")

    def is_settled(self):
        """Two walks are compared, so nothing may come by itself between them."""
        links = self.namespace.ip_json("-6", "addr", "show", "scope", "link")
        return sum("local" in info and "tentative" not in info for link in links for info in link.get("addr_info", [])) == 2

    def configure_snmpd(self, *lines):
        self.write_file("snmpd.conf", self.access + "\n".join(("dontLogTCPWrappersConnects yes", *lines, "")))

    def start_snmpd(self, *options, environment=None):
        configuration = os.path.join(self.directory, "snmpd.conf")
        return self.start(SNMPD, "-C", "-c", configuration, "-I", "-smux", *(options or ("-f", "-Le")), LISTEN,
                          environment=environment)

    def start_master(self):
        self.configure_snmpd("master agentx", f"agentXSocket {self.socket}")
        self.master = self.start_snmpd()

    def start_subagent(self, *options):
        self.agent = self.start("quorind", "-f", "-X", "-x", self.socket, "-C", "-c", self.configuration,
                                "--store", self.store, "--netns-dir", self.vrfs.path, *options)
        return self.agent

    def is_served_by_us(self, client=None):
        """Linux's snmpd has no ipAdEntReasmMaxSize, so a row with this column is ours."""
        return (client or self.client).has(f"{ADDR}.5.10.0.0.1")

    def wait_until_served_by_us(self):
        waiting = self.client.impatient()
        eventually(lambda: self.is_served_by_us(waiting), "ipAddrTable is still snmpd's")

    def stock_names(self):
        """What snmpd serves in the groups system and ip, beside sysORTable and what the library takes over."""
        ours = (*OURS, f"{SYSTEM}.9.")
        return [bind.oid for root in (SYSTEM, IP) for bind in self.client.walk(root) if not bind.oid.startswith(ours)]
