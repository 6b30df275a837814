"""One SNMP context for each VRF, in all three homes of the library."""

import os
import signal
import time
import unittest

from harness import SnmpError, background, eventually, kernel_rows, main
from harness.snmp import SYS_UP_TIME
from harness.snmpd import PLUGIN, PORT, SNMPD, SnmpdCase, plugin_environment
from harness.vrfcase import VrfClients

ACCESS = """
dontLogTCPWrappersConnects yes
sysName router
sysContact nobody
view all included .1
com2sec default default private
com2sec -Cn red red default red-secret
com2sec -Cn blue blue default blue-secret
com2sec -Cn "a b" blank default blank-secret
group default v2c default
group red v2c red
group blue v2c blue
group blank v2c blank
access default "" v2c noauth exact all all none
access red red v2c noauth exact all all none
access blue blue v2c noauth exact all none none
access blank "" v2c noauth prefix all none none
createUser alice SHA authentic-pass AES private-pass
createUser bob SHA authentic-pass AES private-pass
group operators usm alice
access operators "" usm priv prefix all none none
rouser bob priv -V all red
"""
SYSTEM = "1.3.6.1.2.1.1"
SYS_CONTACT = SYSTEM + ".4.0"
ENGINE = "1.3.6.1.6.3.10.2.1"
COUNTERS = ("1.3.6.1.2.1.11", "1.3.6.1.6.3.11.2.1", "1.3.6.1.6.3.15.1.1")
INTERFACES_OF_A_VRF = 2**20


class Home(VrfClients):
    shared = (SYSTEM, ENGINE, *COUNTERS)

    def add_vrf(self, name, *addresses):
        """The same interface name in each, so that only the context can tell them apart."""
        namespace = self.vrfs.add(name)
        namespace.add_interface("a0", *addresses)
        return namespace

    def assert_shows(self, client, namespace):
        expected = kernel_rows(namespace)

        def rows():
            return {address: (row[0] % INTERFACES_OF_A_VRF, row[1]) for address, row in client.ip_addr_rows().items()}

        eventually(lambda: rows() == expected, lambda: f"served {rows()}, the kernel has {expected}")

    def test_every_vrf_shows_its_own_rows_and_no_other(self):
        red = self.add_vrf("red", "10.1.1.1/24", "10.1.1.2/24")
        self.start_home()
        blue = self.add_vrf("blue", "10.1.1.1/16")
        blank = self.add_vrf("a b", "10.7.7.7/32")
        for name, namespace in (("red", red), ("blue", blue), ("a b", blank)):
            clients = [self.community({"a b": "blank"}.get(name, name) + "-secret"), self.user(name)]
            for client in clients:
                self.wait_for_context(client)
                self.assert_shows(client, namespace)
        self.assert_shows(self.community("private"), self.namespace)
        self.assert_shows(self.user(""), self.namespace)
        self.assert_shows(self.user("red", "bob"), red)
        for client in (self.user("blue", "bob"), self.user("none"), self.community("none", timeout=1)):
            with self.assertRaises(SnmpError):
                client.walk(SYSTEM)
        red.add_address("a0", "10.1.1.3/24")
        self.assert_shows(self.community("red-secret"), red)
        self.assert_shows(self.community("blue-secret"), blue)

    def test_a_context_is_whole(self):
        red = self.add_vrf("red", "10.1.1.1/24")
        began = time.monotonic()
        self.start_home()
        client, default = self.community("red-secret"), self.community("private")
        self.wait_for_context(client)
        self.assert_shows(client, red)
        for root in self.shared:
            expected = [bind.oid for bind in default.bulk_walk(root)]
            served = [bind.oid for bind in client.bulk_walk(root) if bind.exists]
            if root == SYSTEM:  # rows of sysORTable may differ in number: a subagent lists its own
                expected, served = ([oid for oid in oids if ".1.9." not in oid] for oids in (expected, served))
            self.assertEqual(served, expected)
            self.assertTrue(served)
        for oid in (SYSTEM + ".1.0", SYSTEM + ".2.0", SYS_CONTACT, SYSTEM + ".5.0"):
            self.assertEqual(client.get(oid), default.get(oid))

        def up_time():
            return int(client.get(SYS_UP_TIME)[0].value.split(")")[0].strip("("))

        up = up_time()
        self.assertLess(up, 100 * (time.monotonic() - began))
        eventually(lambda: up_time() > up, "sysUpTime stands still")
        for walk in (client.walk, client.bulk_walk):
            oids = [tuple(map(int, bind.oid.split("."))) for bind in walk(".1") if bind.exists]
            self.assertEqual(oids, sorted(set(oids)))
            self.assertEqual(oids[0], (1, 3, 6, 1, 2, 1, 1, 1, 0))
        self.assertEqual(client.set_error((SYS_CONTACT, "s", "me")), "notWritable")

    def test_contexts_come_and_go_under_a_walker(self):
        self.start_home()
        blue = self.add_vrf("blue", "10.2.0.1/24")
        walker = self.community("red-secret")
        self.wait_for_context(self.community("blue-secret"))

        def walk():
            try:
                self.assertEqual([bind for bind in walker.bulk_walk(".1") if bind.value.startswith("10.2.")], [])
            except SnmpError as error:
                self.assertNotIn("increasing", error.reason)

        with background(walk):
            for number in range(4):
                red = self.add_vrf("red", f"10.1.{number}.1/24")
                self.wait_for_context(walker)
                self.assert_shows(walker, red)
                self.vrfs.remove("red")
                eventually(lambda: not walker.impatient().has(SYS_UP_TIME), "red answers after its removal")
        self.assert_shows(self.community("blue-secret"), blue)


class AgentTest(Home, SnmpdCase):
    def start_home(self):
        self.start_mirror()
        self.write_configuration(ACCESS)
        self.home = self.start_agent(listen=f"udp:127.0.0.1:{PORT}")

    def test_a_reload_keeps_the_contexts(self):
        red = self.add_vrf("red", "10.1.1.1/24")
        self.start_home()
        client = self.community("red-secret")
        self.wait_for_context(client)
        for lines in ("", "quorinDisableObjects route-tables\n", ""):
            self.write_configuration(ACCESS + lines)
            reloads = self.home.output().count("read again")
            self.home.signal(signal.SIGHUP)
            eventually(lambda: self.home.output().count("read again") > reloads, "no reload")
            self.wait_for_context(client)
            self.assert_shows(client, red)

    def test_names_that_access_control_cannot_reach(self):
        self.start_home()
        name = "n" * 33
        self.add_vrf(name, "10.1.1.1/24")
        eventually(lambda: f'VRF "{name}" has a name of 33 bytes' in self.home.output(), "no word about it")
        with self.assertRaises(SnmpError):
            self.user(name).walk(SYSTEM)


@unittest.skipUnless(os.path.exists(SNMPD), "Debian's package snmpd is not installed")
class SubagentTest(Home, SnmpdCase):
    shared = (SYSTEM, ENGINE)

    def start_master(self):
        with open(self.snmpd_configuration, "w", encoding="utf-8") as file:
            file.write(f"{ACCESS}master agentx\nagentXSocket {self.socket}\n")
        self.master = self.start_snmpd()

    def start_home(self):
        self.start_mirror()
        self.start_master()
        self.write_configuration("sysName router\nsysContact nobody\n")
        self.home = self.start_subagent()
        self.wait_until_served_by_us()  # what comes from now on, the master learns by the way

    def tearDown(self):
        self.assertNotIn("registering pdu failed", self.home.output())
        self.assertNotIn("duplicate", self.master.output())

    def test_contexts_are_back_after_the_master_was_restarted(self):
        red = self.add_vrf("red", "10.1.1.1/24")
        self.start_home()
        client = self.community("red-secret")
        self.wait_for_context(client)
        self.master.is_expected_to_run = False
        self.master.signal(signal.SIGKILL)
        self.master.process.wait(10)
        blue = self.add_vrf("blue", "10.2.1.1/24")
        self.start_master()
        self.wait_for_context(client)
        self.assert_shows(client, red)
        self.wait_for_context(self.community("blue-secret"))
        self.assert_shows(self.community("blue-secret"), blue)


@unittest.skipUnless(os.path.exists(SNMPD), "Debian's package snmpd is not installed")
class PluginTest(Home, SnmpdCase):
    def start_home(self):
        self.start_mirror()
        with open(self.snmpd_configuration, "w", encoding="utf-8") as file:
            file.write(f"{ACCESS}dlmod quorin {PLUGIN}\nquorinStore {self.store}\n")
        self.home = self.start_snmpd(environment=plugin_environment())


if __name__ == "__main__":
    main()
