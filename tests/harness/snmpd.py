"""Debian's own snmpd, in a private configuration, and what it serves by itself."""

import os
import subprocess
import unittest

from harness.case import SystemCase, eventually
from harness.programs import BIN_DIR
from harness.snmp import Client

SNMPD = "/usr/sbin/snmpd"
PLUGIN = os.path.abspath(os.path.join(BIN_DIR, "..", "lib", "quorin.so"))
PORT = 1162
CONFIGURATION = "dontLogTCPWrappersConnects yes\nrwcommunity private 127.0.0.1\nsysName stock\n"
IP_GROUP = "1.3.6.1.2.1.4"
# Rows with this column are ours: Linux's snmpd has no ipAdEntReasmMaxSize.
REASM_MAX_SIZE = IP_GROUP + ".20.1.5"
# The tables and scalars of the group that the library takes over; all else there stays snmpd's.
OURS = tuple(f"{IP_GROUP}.{number}." for number in (1, 20, 22, 25, 32, 34, 35, "24.3", "24.4"))


def is_ours(oid):
    return oid.startswith(OURS)


def plugin_environment():
    """A plugin built with the address sanitizer wants its runtime, and that of C++, in the process from the start."""
    needed = subprocess.run(["ldd", PLUGIN], capture_output=True, text=True, check=True).stdout
    runtime = [line.split()[2] for line in needed.splitlines() if "libasan" in line or "libstdc++" in line]
    if "libasan" not in needed:
        return {}
    return {"LD_PRELOAD": ":".join(sorted(runtime)), "ASAN_OPTIONS": "detect_leaks=0"}


@unittest.skipUnless(os.path.exists(SNMPD), "Debian's package snmpd is not installed")
class SnmpdCase(SystemCase):
    """Gives each test a client of the snmpd that it starts."""

    def setUp(self):
        super().setUp()
        self.socket = os.path.join(self.directory, "agentx")
        self.snmpd_configuration = os.path.join(self.directory, "snmpd.conf")
        self.client = Client(self.namespace, agent=f"udp:127.0.0.1:{PORT}")
        self.namespace.sysctl("net.ipv6.conf.default.accept_dad", 0)
        self.namespace.add_interface("a0", "10.0.0.1/24", "2001:db8::1/64")
        eventually(self.is_settled, "the interfaces have no link-local addresses")
        self.namespace.ip("neigh", "add", "10.0.0.7", "lladdr", "02:00:00:00:00:07", "dev", "a0")

    def is_settled(self):
        """Two walks are compared, so nothing may come by itself between them."""
        links = self.namespace.ip_json("-6", "addr", "show", "scope", "link")
        return sum("local" in info and "tentative" not in info for link in links for info in link.get("addr_info", [])) == 2

    def configure_snmpd(self, *lines):
        with open(self.snmpd_configuration, "w", encoding="utf-8") as file:
            file.write(CONFIGURATION + "".join(line + "\n" for line in lines))

    def start_snmpd(self, *options, environment=None):
        return self.start(SNMPD, "-f", "-C", "-c", self.snmpd_configuration, "-Le", "-I", "-smux", *options,
                          f"udp:127.0.0.1:{PORT}", environment=environment)

    def start_subagent(self, *options):
        return self.start("quorind", "-f", "-X", "-x", self.socket, "-C", "-c", self.configuration,
                          "--store", self.store, *options)

    def is_served_by_us(self, client=None):
        return (client or self.client).has(f"{REASM_MAX_SIZE}.10.0.0.1")

    def wait_until_served_by_us(self):
        waiting = self.client.impatient()
        eventually(lambda: self.is_served_by_us(waiting), "ipAddrTable is still snmpd's")

    def names(self, oid, of_ours):
        return [bind.oid for bind in self.client.bulk_walk(oid) if is_ours(bind.oid) == of_ours]

    def stock_names(self):
        """What a plain snmpd serves here, beside what the library takes over: the groups system and ip."""
        self.configure_snmpd()
        plain = self.start_snmpd()
        eventually(self.client.impatient().answers, "snmpd does not answer")
        names = self.system_and_ip_names()
        self.assertEqual(plain.stop(), 0)
        return names

    def system_and_ip_names(self):
        return self.names("1.3.6.1.2.1.1", False) + self.names(IP_GROUP, False)
