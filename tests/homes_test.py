"""The ways to run the library: an agent, a subagent of a stock snmpd, a plugin in it; and the contexts in each."""

import json
import os
import re
import signal
import socket
import time

from harness import SnmpError, background, eventually, main
from harness.interfaces import expect_interfaces
from harness.kernel import kernel_tables
from harness.snmp import IP_FORWARDING, SYS_UP_TIME, SYSTEM, ticks
from harness.snmpd import OURS, PLUGIN, SnmpdCase, plugin_environment
from harness.tables import ADDR, CONTEXT_TABLES, INET_ROUTE, IP, IP_TABLES, SYSTEM_STATS, numbers
from harness.tools import read_file

BOB = "createUser bob SHA authentic-pass AES private-pass\nrouser bob priv -V all red\n"  # who may ask in red alone
# Who sees neither a column, nor a row, nor the third row of any column.
HIDDEN = (f"{ADDR}.3", f"{ADDR}.2.10.1.1.2")
EVE = "".join(("createUser eve SHA authentic-pass AES private-pass\nrouser eve priv -V part red\nview part included .1\n",
               *(f"view part excluded {subtree}\n" for subtree in HIDDEN),
               f"view part excluded {ADDR}.1.10.1.1.3 ff.bf\n"))
# Who sees our own objects and nothing before them.
TOM = "createUser tom SHA authentic-pass AES private-pass\nrouser tom priv -V ours red\nview ours included .1.3.6.1.4.1.32473\n"
IP_ROUTE = f"{IP}.21"
ENGINE = "1.3.6.1.6.3.10.2.1"
AGENT = "1.3.6.1.4.1.32473.4"
SNMPTRAPD = "/usr/sbin/snmptrapd"
RECEIVER = "udp:127.0.0.1:1163"
COUNTERS = ("1.3.6.1.2.1.11", "1.3.6.1.6.3.11.2.1", "1.3.6.1.6.3.15.1.1")


class Home:
    """What holds in every home. `start_home` sets `home`, the program that answers."""

    communities = ("red", "blue", "a b")
    shared = (SYSTEM, ENGINE, *COUNTERS)  # groups that the contexts have from the default one
    settings = ()  # further lines of the library's configuration
    checks_views = True  # otherwise the master does, which errs where a GETBULK has several columns

    def setUp(self):
        super().setUp()
        self.access += BOB + EVE + TOM

    def add_vrf(self, name, *addresses):
        """The same interface name in each, so that only the context can tell them apart."""
        namespace = self.vrfs.add(name)
        namespace.add_interface("a0", *addresses)
        return namespace

    def test_every_vrf_shows_its_own_rows_and_no_other(self):
        red = self.add_vrf("red", "10.1.1.1/24", "10.1.1.2/24")
        self.start_home()
        self.add_vrf("blue", "10.1.1.1/16")
        self.add_vrf("a b", "10.7.7.7/32")
        for name in self.communities:
            for client in (self.client_of(name), self.user(name)):
                self.expect_context(name, client)
        self.expect_context()
        for name in (None, "red"):
            expect_interfaces(self, name)
        self.expect_context(client=self.user(""))
        self.expect_context("red", self.user("red", "bob"))
        for client in (self.user("blue", "bob"), self.user("none"), self.community("none", timeout=1)):
            with self.assertRaises(SnmpError):
                client.walk(SYSTEM)
        red.ip("addr add 10.1.1.3/24 dev a0")
        self.expect_context("red")
        self.expect_context("blue")

    def test_a_view_hides_the_same_however_it_is_asked(self):
        self.add_vrf("red", "10.1.1.1/24", "10.1.1.2/24", "10.1.1.3/24", "10.1.1.4/24")
        self.start_home()
        self.expect_context("red")
        eve = self.user("red", "eve")
        visible = [bind for bind in self.user("red").walk(ADDR)
                   if not bind.oid.startswith(HIDDEN) and not bind.oid.endswith(".10.1.1.3")]
        self.assertEqual(self.expect_one_answer(eve, ADDR), visible)
        names = [bind.oid for bind in eve.walk(IP)]
        columns = [f"{ADDR}.{number}" for number in (1, 2, 4, 3)]
        for repetitions in (1, 3, 20) if self.checks_views else ():
            answer = [bind.oid for bind in eve.ask("snmpbulkget", "-Cn1", f"-Cr{repetitions}", *columns)]
            for got, column in zip((answer[:1], answer[1::3], answer[2::3], answer[3::3]), columns):
                behind = [name for name in names if numbers(name) > numbers(column)]
                self.assertEqual(got, behind[:len(got)])
        ours = [bind.oid for bind in self.user("red").walk("1.3.6.1.4.1.32473")]
        behind = f"{ENGINE}.1"
        answer = [bind.oid for bind in self.user("red", "tom").ask("snmpbulkget", "-Cr3", "1.3.6.1.3", "1.0", behind)]
        self.assertEqual(answer, [name for row in ours[:3] for name in (row, row, behind)])

    def test_a_context_is_whole(self):
        self.add_vrf("red", "10.1.1.1/24")
        began = time.monotonic()
        self.start_home()
        client = self.client_of("red")
        self.expect_context("red")
        for root in self.shared:
            # Rows of sysORTable may differ in number: a subagent lists its own.
            expected, served = ([bind.oid for bind in asked.walk(root) if f"{SYSTEM}.9." not in bind.oid]
                                for asked in (self.client, client))
            self.assertEqual(served, expected)
            self.assertTrue(served)
        scalars = [f"{SYSTEM}.{number}.0" for number in (1, 2, 4, 5)]
        self.assertEqual(client.get(*scalars), self.client.get(*scalars))

        def up_time():
            return ticks(client.get(SYS_UP_TIME)[0])

        up = up_time()
        self.assertLess(up, 100 * (time.monotonic() - began))
        eventually(lambda: up_time() > up, "sysUpTime stands still")
        oids = [numbers(bind.oid) for bind in client.walk(".1")]
        self.assertEqual(oids, sorted(set(oids)))
        self.assertEqual(oids[0], (1, 3, 6, 1, 2, 1, 1, 1, 0))
        self.assertEqual(self.community("w-red").set_error(f"{SYSTEM}.4.0", "s", "me"), "notWritable")

    def test_contexts_come_and_go_under_a_walker(self):
        self.start_home()
        self.add_vrf("blue", "10.2.0.1/24")
        walker = self.client_of("red")
        self.expect_context("blue")

        def walk():
            try:
                self.assertEqual([bind for bind in walker.walk(".1") if bind.value.startswith("10.2.")], [])
            except SnmpError as error:
                self.assertNotIn("increasing", str(error))

        with background(walk):
            for number in range(4):
                self.add_vrf("red", f"10.1.{number}.1/24")
                self.expect_context("red")
                self.vrfs.remove("red")
                eventually(lambda: not walker.impatient().has(SYS_UP_TIME), "red answers after its removal")
        self.expect_context("blue")


    def test_the_state_of_the_publisher_shows(self):
        self.settings = ("quorinStaleAfter 3",)
        self.access += f"informsink {RECEIVER} public\n"
        receiver = self.start(SNMPTRAPD, "-f", "-Lo", "-On", "-C", "-c",
                              self.write_file("trapd.conf", "disableAuthorization yes\n"), RECEIVER)
        self.start_home()
        self.expect_context()

        def state():
            return [bind.value for bind in self.client.get(*(f"{AGENT}.1.{number}.0" for number in (1, 7, 8)))]

        def expect_notification(number, *texts):
            receiver.wait_for_output(".*".join((rf"{AGENT}\.0\.{number}\b", *texts)))

        self.assertEqual(state(), ["2", "1", "2"])
        self.add_vrf("red", "10.1.1.1/24")
        expect_notification(4, '"red"')
        self.expect_context("red")
        self.mirror.kill()
        self.home.wait_for_output("quorin-mirrord.* has ended")
        expect_notification(1, "INTEGER: 4")
        self.assertEqual(state()[0], "4")
        eventually(lambda: state() == ["4", "2", "1"], "old state is served")
        for client in (self.client, self.client_of("red")):
            self.assertFalse(client.has(IP_FORWARDING))
            self.assertEqual([bind for bind in client.walk(IP)
                              if bind.oid.startswith(OURS) and not bind.oid.startswith(SYSTEM_STATS)], [],
                             "only the kernel's own counters are current")
        os.rename(self.store, f"{self.store}-old")
        self.home.wait_for_output("waiting for a store")
        self.assertEqual(state(), ["4", "2", "1"], "old state without its store is no younger")
        self.start_mirror()
        self.expect_context("red")
        expect_notification(2, "INTEGER: 2")
        self.vrfs.remove("red")
        expect_notification(5, '"red"')
        self.expect_context()
        for number in (1, 2, 4, 5):
            self.assertEqual(len(re.findall(rf"= OID: \.{AGENT}\.0\.{number}\b", receiver.output())), 1, receiver.output())


class StockHome(Home):
    """What holds wherever the library serves through a stock snmpd."""

    def test_takes_the_place_of_built_in_modules_and_no_other(self):
        self.configure_snmpd()
        plain = self.start_snmpd()
        eventually(self.client.impatient().answers, "snmpd does not answer")
        stock = self.stock_names()
        self.assertEqual(plain.stop(), 0)
        self.namespace.sysctl("net.ipv4.ip_forward", 1)
        self.start_home()
        self.wait_until_served_by_us()
        self.assertEqual(self.stock_names(), stock)
        self.expect_context()
        self.assertEqual(self.client.get(IP_FORWARDING)[0].value, "1")
        self.assertEqual(self.client.walk(IP_ROUTE), [], "snmpd would copy all routes")
        self.expect(lambda: self.client.get(f"{IP}.24.6.0")[0].value,  # snmpd's counts local routes, too
                    lambda: str(len(kernel_tables(self.namespace, entries=(INET_ROUTE,))[INET_ROUTE])),
                    "inetCidrRouteNumber")
        for bind in self.expect_one_answer(self.client, IP):
            if bind.oid.startswith(ADDR):
                self.assertEqual(self.client.get(bind.oid), [bind])
        for oid in (IP_FORWARDING, f"{ADDR}.2.10.0.0.1"):
            self.assertEqual(self.client.set_error(oid, "i", "2"), "notWritable")
        with self.subTest("and gives it back"):
            self.leave_home()
            eventually(lambda: not self.is_served_by_us(), "ipAddrTable is still ours")
            self.assertTrue(self.client.get(f"{ADDR}.2.10.0.0.1")[0].exists, "snmpd's own table must be back")
            self.assertTrue(self.client.get(IP_FORWARDING)[0].exists)
            self.assertTrue(self.client.walk(IP_ROUTE))

    def assert_idle(self, program):
        def switches():
            return int(re.search(r"\nvoluntary_ctxt_switches:\s+(\d+)", read_file(f"/proc/{program.pid}/status"))[1])

        def is_quiet():  # for a second, in which a program that is busy without work is never
            before = switches()
            time.sleep(1)
            return switches() - before < 20

        eventually(is_quiet, f"{program.name} is busy without work")


class AgentTest(Home, SnmpdCase):
    def start_home(self):
        self.start_mirror()
        self.configure(*self.settings)
        self.home = self.start_agent()

    def test_a_version_1_trap_names_an_address_of_the_host(self):
        self.namespace.ip("link set a0 down", "addr add 192.0.2.1/32 dev lo")
        self.namespace.add_interface("b0", "192.0.2.3/24", "192.0.2.4/24")
        self.access += f"trapsink {RECEIVER} public\n"
        format_of_traps = self.write_file("trapd.conf", "disableAuthorization yes\nformat1 from %a: %w\\n\n")
        receiver = self.start(SNMPTRAPD, "-f", "-Lo", "-On", "-C", "-c", format_of_traps, RECEIVER)
        self.start_home()
        receiver.wait_for_output(r"from 192\.0\.2\.3: 0")
        eventually(lambda: self.client.has(IP_FORWARDING), "the state is served")

    def test_a_reload_keeps_the_contexts(self):
        self.add_vrf("red", "10.1.1.1/24")
        self.start_home()
        self.wait_for_context(self.client_of("red"))
        for lines, entries in (((), CONTEXT_TABLES), (("quorinDisableObjects route-tables",), IP_TABLES),
                               ((), CONTEXT_TABLES)):
            self.reconfigure(*lines)
            self.expect_context("red", entries=entries)


class SubagentTest(StockHome, SnmpdCase):
    shared = (SYSTEM, ENGINE)
    checks_views = False

    def start_home(self):
        self.start_mirror()
        self.start_master()
        self.write_file("quorind.conf", "\n".join(("sysName router", "sysContact nobody", *self.settings, "")))
        self.home = self.start_subagent()
        self.wait_until_served_by_us()  # the master learns of changes from now on while it runs

    def leave_home(self):
        self.assertEqual(self.home.stop(), 0)

    def tearDown(self):
        for program in self.programs:
            for words in ("registering pdu failed", "duplicate"):
                self.assertNotIn(words, program.output())

    def test_waits_for_its_master_and_finds_it_again(self):
        self.start_mirror()
        eventually(lambda: os.path.exists(self.store), "the mirror makes no store")
        control = os.path.join(self.directory, "control")
        self.write_file("quorind.conf", f"quorinKernelIpHeader any\nquorinControlSocket {control}\n")
        agent = self.start_subagent("-Dagentx/subagent")

        def has_master():
            with socket.socket(socket.AF_UNIX) as client:
                client.connect(control)
                client.sendall(b'{"request":"status"}\n')
                return json.loads(client.makefile().readline())["master"]

        eventually(lambda: agent.output().count("agentx/subagent: opening session") >= 3, "the agent does not try again")
        said = agent.output().split(f"no AgentX master answers at {self.socket} yet")
        self.assertEqual(len(said), 2, agent.output())
        said = [line for line in said[1].splitlines()[1:] if not line.startswith("agentx/subagent: ")]
        self.assertEqual(len(said), 1, "more than that it serves")
        for name, stop in (("red", signal.SIGTERM), ("blue", signal.SIGKILL), ("a b", signal.SIGKILL)):
            self.add_vrf(name, "10.1.1.1/24")
            self.start_master()
            self.wait_until_served_by_us()
            self.assertTrue(has_master())
            self.expect_context()
            for served in self.vrfs.namespaces:  # made while there was no master
                self.expect_context(served)
            self.master.process.send_signal(stop)
            self.master.wait()
            eventually(lambda: not has_master(), "a master that has ended counts")
        self.assertEqual(agent.output().count("subagent connected"), 3)

    def test_reload_keeps_one_session(self):
        self.start_home()
        for _ in range(2):
            self.home.reload()
        self.assert_idle(self.home)
        self.assertTrue(self.is_served_by_us())
        self.assertNotIn("re-opened", self.home.output())

    def test_leaves_the_users_of_an_agent_alone(self):
        state = os.path.join(self.directory, "state-quorind", "quorind.conf")
        os.mkdir(os.path.dirname(state))
        users = self.write_file(state, "usmUser 1 3 0x80001f 0x616c NULL .1.3.6.1.6.3.10.1.1.2 0x00 "
                                       ".1.3.6.1.6.3.10.1.2.2 0x00 \"\"\n")
        before = read_file(users)
        self.start_home()
        self.assertEqual(self.home.stop(), 0)
        self.assertEqual((read_file(users), "Unknown token" in self.home.output()), (before, False))

    def test_options_that_make_no_sense_are_refused(self):
        for options, text in ((("udp:127.0.0.1:1161",), "a subagent (-X) does not listen"), (("-x", ""), "-x is empty")):
            agent = self.start_subagent(*options)
            self.assertEqual(agent.wait(), 1)
            self.assertIn(text, agent.output())


class PluginTest(StockHome, SnmpdCase):
    def configure_plugin(self):
        self.configure_snmpd(f"dlmod quorin {PLUGIN}", f"quorinStore {self.store}", *self.settings)

    def start_home(self, *options):
        self.start_mirror()
        self.configure_plugin()
        self.home = self.start_snmpd(*options, environment=plugin_environment())

    def reload_home(self):
        self.home.process.send_signal(signal.SIGHUP)

    def leave_home(self):
        self.configure_snmpd()
        self.reload_home()

    def test_reload_does_not_interrupt_and_takes_settings_anew(self):
        self.start_home()
        self.wait_until_served_by_us()
        self.reload_home()
        end = time.monotonic() + 1
        while time.monotonic() < end:
            self.assertTrue(self.is_served_by_us())
        self.assertEqual(self.home.output().count("quorin: version"), 1)
        self.assert_idle(self.home)

        other = os.path.join(self.directory, "other")
        self.configure_snmpd(f"dlmod quorin {PLUGIN}", f"quorinStore {other}", "quorinDisableObjects nonsense")
        self.reload_home()
        self.home.wait_for_output(other)
        self.home.wait_for_output("there is no object group 'nonsense'")
        eventually(lambda: not self.is_served_by_us(), "the rows of the store that was left stay")
        self.configure_plugin()
        self.reload_home()
        self.wait_until_served_by_us()

        self.leave_home()
        self.home.wait_for_output("quorin: unloaded")
        self.configure_plugin()
        self.reload_home()
        self.wait_until_served_by_us()

    def test_in_the_background(self):
        log, pid_file = (os.path.join(self.directory, name) for name in ("log", "pid"))
        self.start_home("-Lf", log, "-p", pid_file)
        self.assertEqual(self.home.wait(), 0)

        def daemon():  # which writes the file after its parent has ended
            return os.path.exists(pid_file) and int(read_file(pid_file) or 0)

        pid = eventually(daemon, "snmpd writes no pid file")
        try:
            self.wait_until_served_by_us()
        finally:
            os.kill(pid, signal.SIGTERM)
        eventually(lambda: not os.path.exists(f"/proc/{pid}"), "snmpd does not stop")

    def test_shows_nothing_but_its_entry_points(self):
        shown = self.namespace.run("nm", "-D", "--defined-only", "--demangle", PLUGIN).stdout
        names = {line.split()[2] for line in shown.splitlines()}
        self.assertLessEqual({"init_quorin", "deinit_quorin"}, names)
        self.assertEqual([name for name in names if not re.match(r"(init|deinit|unregister)_", name)], [])


if __name__ == "__main__":
    main()
