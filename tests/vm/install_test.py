"""Our Debian packages, installed with dpkg on a Debian with systemd: the services, their failures, the same in Debian's
snmpd, an upgrade, and a purge. It follows what the installed configuration and the pages for operators say."""

import glob
import os
import pwd
import re
import signal
import unittest

from harness import eventually, main
from harness.snmp import IP_FORWARDING, Client
from harness.tables import ADDR, ENTERPRISE, ROUTE
from harness.tools import read_file, run_command

CONFIGURATION, OPTIONS = "/etc/quorin/quorind.conf", "/etc/default/quorin-snmp"
SNMPD_CONFIGURATION = "/etc/snmp/snmpd.conf"
PACKAGES = ("quorin-snmp", "quorin-snmp-plugin")
AGENT = "127.0.0.1:161"
ALICE = ("-v3", "-l", "authPriv", "-u", "alice", "-a", "SHA-256", "-A", "a long pass phrase",
         "-x", "AES", "-X", "another pass phrase")
# VRF -> its address, and the index of its route in ipCidrRouteTable
VRFS = {"red": ("10.1.0.1", "172.16.0.0.255.255.0.0.0.10.1.0.9"),
        "blue": ("10.2.0.1", "172.17.0.0.255.255.0.0.0.10.2.0.9")}
PUBLISHER_STATE, STALE = (f"{ENTERPRISE}.4.1.{number}.0" for number in (1, 8))
ALIVE, GONE = "2", "4"
COMPLAINT = re.compile(r"error|fail|cannot|refus|denied|unknown|warning|invalid", re.IGNORECASE)


class Machine:
    """In place of a namespace: its commands run as they are."""

    @staticmethod
    def wrap(command):
        return command


def run(*command, check=True):
    return run_command(command, check=check)


class Unit:
    """A systemd unit, which a failure shows as it does a program of the harness."""

    def __init__(self, name):
        self.name = name
        self.earlier = len(self.journal())

    def journal(self):
        return run("journalctl", "-q", "-o", "cat", "-u", self.name).stdout.splitlines()

    def lines(self):
        """Of its journal, since this object was made."""
        return self.journal()[self.earlier:]

    def show(self, key):
        return run("systemctl", "show", "--value", "-p", key, self.name).stdout.strip()

    @property
    def pid(self):
        return int(self.show("MainPID"))

    @property
    def user(self):
        return pwd.getpwuid(os.stat(f"/proc/{self.pid}").st_uid).pw_name

    def wait_for_line(self, pattern):
        return eventually(lambda: next((line for line in self.lines() if re.search(pattern, line)), None),
                          lambda: f"no line {pattern!r} of {self.name}", interval=0.5)


def write_file(path, text):
    with open(path, "w", encoding="utf-8") as file:
        file.write(text)


def systemctl(*arguments):
    run("systemctl", *arguments)


def install(version):
    run("dpkg", "-i", *sorted(glob.glob(f"/vm/{version}/*.deb")))


def install_first():
    if not os.path.exists(CONFIGURATION):
        systemctl("disable", "--now", "snmpd")  # it has port 161; the installed quorind.conf says so
        install("first")


def is_active(unit):
    return unit.show("ActiveState") == "active"


def client(*access):
    return Client(Machine, AGENT, access)


class InstallTest(unittest.TestCase):
    def setUp(self):
        install_first()
        self.programs = self.mirror, self.agent = Unit("quorin-mirrord"), Unit("quorind")
        self.addCleanup(self.remove_vrfs)
        self.alice = client(*ALICE)

    # What an operator does.

    def change(self, path, text):
        """The file is as it was after the test."""
        self.addCleanup(write_file, path, read_file(path))
        write_file(path, text)

    def configure(self, *lines):
        """Follows the comments of the installed file: the user of SNMPv3, and a community of red."""
        text = re.sub(r"^# (createUser|view|rouser|rocommunity) ", r"\1 ", read_file(CONFIGURATION), flags=re.MULTILINE)
        self.change(CONFIGURATION, "\n".join((text, *lines, "")))

    def start(self, *lines):
        """Configured services that answer, then VRFs."""
        self.configure(*lines)
        systemctl("restart", self.mirror.name, self.agent.name)
        self.wait_for(self.alice, IP_FORWARDING)
        self.add_vrfs()

    @staticmethod
    def add_vrfs():
        """red is a network namespace, blue a VRF device."""
        run("ip", "netns", "add", "ns-red")
        run("ip", "link", "add", "blue", "type", "vrf", "table", "1001")
        run("ip", "link", "set", "blue", "up")
        for vrf, (address, route) in VRFS.items():
            ip = ["ip", "-n", "ns-red"] if vrf == "red" else ["ip"]
            run(*ip, "link", "add", f"{vrf}0", "type", "dummy")
            run(*ip, "link", "set", f"{vrf}0", "up", *(() if vrf == "red" else ("master", vrf)))
            run(*ip, "addr", "add", f"{address}/24", "dev", f"{vrf}0")
            octets = route.split(".")
            run(*ip, "route", "add", f"{'.'.join(octets[:4])}/16", "via", ".".join(octets[9:]),
                *(() if vrf == "red" else ("vrf", vrf)))

    @staticmethod
    def remove_vrfs():
        run("ip", "netns", "del", "ns-red", check=False)
        for link in ("blue0", "blue"):
            run("ip", "link", "del", link, check=False)

    # What must be there then.

    def wait_for(self, asking, *oids, are_there=True):
        for oid in oids:
            eventually(lambda: asking.has(oid) == are_there, f"{oid} of {asking.access}, {are_there}", interval=0.2)

    def expect_vrfs(self, are_there=True, client_of=lambda vrf: client(*ALICE, "-n", vrf)):
        for vrf, (address, route) in VRFS.items():
            self.wait_for(client_of(vrf), f"{ADDR}.1.{address}", f"{ROUTE}.1.{route}", are_there=are_there)

    def expect_value(self, oid, value):
        eventually(lambda: self.alice.get(oid)[0].value == value, lambda: f"{self.alice.get(oid)} is not {value}",
                   interval=0.5)

    def expect_status(self, status, words):
        """Of quorinctl, as monitoring sees it."""
        done = {}

        def same():
            done["last"] = run("quorinctl", "status", check=False)
            return done["last"].returncode == status and done["last"].stdout.startswith(words)

        eventually(same, lambda: f"not {status} {words!r}: {done['last']}", interval=0.5)

    def test_services(self):
        self.start()
        for unit in self.programs:
            with self.subTest(unit=unit.name):
                restarts, pid = unit.show("NRestarts"), unit.pid
                self.assertEqual(unit.user, "quorin")

                def outlived_the_watchdog():
                    begun, reported = (int(unit.show(f"{name}TimestampMonotonic"))
                                       for name in ("ActiveEnter", "Watchdog"))
                    return reported - begun > 40e6

                eventually(outlived_the_watchdog, "does not report to the watchdog", interval=5)
                self.assertEqual((is_active(unit), unit.show("NRestarts"), unit.pid), (True, restarts, pid))
                exposure = run("systemd-analyze", "security", unit.name).stdout.splitlines()[-1]
                self.assertLessEqual(float(re.search(r": (\d+\.\d)", exposure)[1]), 3.0, exposure)
                self.assertEqual([line for line in unit.lines() if COMPLAINT.search(line)], [])
        self.expect_status(0, "OK - 3 VRFs")

    def test_vrfs(self):
        systemctl("restart", self.mirror.name, self.agent.name)
        self.configure()
        systemctl("reload", self.agent.name)
        self.wait_for(self.alice, IP_FORWARDING)
        self.add_vrfs()
        self.expect_vrfs()
        self.addCleanup(run, "ip", "addr", "del", "10.9.0.1/32", "dev", "lo")
        run("ip", "addr", "add", "10.9.0.1/32", "dev", "lo")
        red, anyone = (client("-v2c", "-c", "red-secret", *more) for more in (("--clientaddr=10.9.0.1",), ()))
        self.wait_for(red, f"{ADDR}.1.{VRFS['red'][0]}")
        self.assertFalse(anyone.has(f"{ADDR}.1.{VRFS['red'][0]}"))  # 127.0.0.1 is not in 10.9.0.0/16

    def test_killed_daemons(self):
        self.start()
        for unit in self.programs:
            with self.subTest(unit=unit.name):
                restarts, pid = int(unit.show("NRestarts")), unit.pid
                self.remove_vrfs()
                self.expect_vrfs(are_there=False)
                os.kill(pid, signal.SIGKILL)
                self.add_vrfs()
                eventually(lambda: is_active(unit) and unit.pid not in (0, pid), "is not started again", interval=0.5)
                self.assertEqual(int(unit.show("NRestarts")), restarts + 1)
                self.expect_vrfs()

    def test_mirror_that_ends(self):
        receiver = Unit("receiver")
        self.addCleanup(systemctl, "stop", receiver.name)
        # Debian's own receiver has port 162.
        run("systemd-run", "-q", f"--unit={receiver.name}", "--service-type=notify",
            "snmptrapd", "-f", "-C", "-Lo", "-On", "-m", "", "--disableAuthorization=yes", "udp:127.0.0.1:1162")
        self.start("trap2sink 127.0.0.1:1162 public", "quorinStaleAfter 5")
        self.expect_vrfs()
        systemctl("stop", self.mirror.name)
        self.agent.wait_for_line("quorin-mirrord.* has ended")
        receiver.wait_for_line(rf"\.{ENTERPRISE}\.4\.0\.1\b")
        self.expect_value(PUBLISHER_STATE, GONE)
        self.expect_status(2, "CRITICAL - ")
        self.expect_value(STALE, "1")
        self.expect_vrfs(are_there=False)
        self.wait_for(self.alice, IP_FORWARDING, are_there=False)
        systemctl("start", self.mirror.name)
        self.agent.wait_for_line("quorin-mirrord.* publishes .* again")
        receiver.wait_for_line(rf"\.{ENTERPRISE}\.4\.0\.2\b")
        self.expect_value(PUBLISHER_STATE, ALIVE)
        self.expect_vrfs()
        self.expect_status(0, "OK - 3 VRFs")

    def start_in_snmpd(self, *lines):
        """Debian's snmpd with its own configuration and these lines, and communities for each VRF."""
        snmpd = Unit("snmpd")
        self.programs = (*self.programs, snmpd)
        self.addCleanup(systemctl, "stop", snmpd.name)
        self.change(SNMPD_CONFIGURATION, "\n".join((
            read_file(SNMPD_CONFIGURATION), *lines, "view all included .1",
            *(f'rocommunity "{vrf}-secret" 127.0.0.1 -V all {vrf}' for vrf in VRFS), "")))
        systemctl("restart", snmpd.name)
        return snmpd

    @staticmethod
    def community(vrf):
        return client("-v2c", "-c", f"{vrf}-secret")

    def test_plugin_of_snmpd(self):
        self.start()
        self.addCleanup(systemctl, "enable", "--now", self.agent.name)
        systemctl("disable", "--now", self.agent.name)
        snmpd = self.start_in_snmpd("dlmod quorin quorin", "quorinStore /run/quorin")
        self.addCleanup(run, "deluser", "Debian-snmp", "quorin")
        run("adduser", "Debian-snmp", "quorin")
        systemctl("restart", snmpd.name)
        self.expect_vrfs(client_of=self.community)
        self.assertEqual(snmpd.user, "Debian-snmp")

    def test_subagent_of_snmpd(self):
        self.start()
        self.addCleanup(systemctl, "restart", self.agent.name)
        self.change(OPTIONS, read_file(OPTIONS).replace("QUORIND_OPTIONS=", "QUORIND_OPTIONS=-X"))
        systemctl("stop", self.agent.name)
        os.chmod("/var/agentx", 0o555)
        self.start_in_snmpd("master agentx", "agentXSocket /var/agentx/master", "agentXPerms  0660 0555 root quorin")
        systemctl("start", self.agent.name)
        self.expect_vrfs(client_of=self.community)
        self.assertEqual(self.agent.user, "quorin")

    def test_upgrade_and_purge(self):
        self.start()
        self.expect_vrfs()
        configuration = read_file(CONFIGURATION)
        with open("/run/quorin/data.mdb", "r+b") as store:  # the first package's has another format
            data = store.read()
            for identity in re.finditer(b"QUORINST\1", data):
                store.seek(identity.end() - 1)
                store.write(b"\7")
        pids = [unit.pid for unit in self.programs]
        install("next")
        for unit, pid in zip(self.programs, pids):
            self.assertEqual((is_active(unit), unit.show("NRestarts")), (True, "0"))
            self.assertNotEqual(unit.pid, pid)
        self.mirror.wait_for_line("format version 7")
        self.assertEqual(read_file(CONFIGURATION), configuration)
        self.expect_vrfs()
        self.expect_status(0, "OK - 3 VRFs")

        self.doCleanups()
        run("dpkg", "--purge", *PACKAGES)
        left = run("find", "/", "/run", "/dev/shm", "-xdev", "-path", "/vm", "-prune", "-o", "-iname", "*quorin*",
                   "-print")
        self.assertEqual(left.stdout.split(), [])
        self.assertEqual(run("systemctl", "list-units", "--all", "--plain", "--no-legend", "quorin*").stdout, "")
        self.assertEqual(run("sh", "-c", "getent passwd quorin; getent group quorin", check=False).stdout, "")


if __name__ == "__main__":
    install_first()
    main()
