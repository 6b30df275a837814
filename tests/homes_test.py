"""The library in a stock snmpd, as its AgentX subagent and as its plugin."""

import os
import re
import pwd
import shutil
import signal
import time

from harness import eventually, kernel_rows, main
from harness.snmp import IP_ADDR_ENTRY, IP_FORWARDING
from harness.snmpd import IP_GROUP, PLUGIN, PORT, SNMPD, SnmpdCase, plugin_environment


class Home:
    """What holds wherever the library serves through a stock snmpd."""

    def test_takes_the_place_of_built_in_modules_and_no_other(self):
        stock = self.stock_names()
        self.namespace.sysctl("net.ipv4.ip_forward", 1)
        self.start_home()
        self.wait_until_served_by_us()
        self.assertEqual(self.system_and_ip_names(), stock)
        self.assertEqual(self.client.ip_addr_rows(self.client.walk), kernel_rows(self.namespace))
        self.assertEqual(self.client.ip_addr_rows(), kernel_rows(self.namespace))
        self.assertEqual(self.client.get(IP_FORWARDING)[0].value, "1")
        binds = self.client.walk(IP_GROUP)
        oids = [tuple(map(int, bind.oid.split("."))) for bind in binds]
        self.assertEqual(oids, sorted(set(oids)))
        for bind in binds:
            if bind.oid.startswith(IP_ADDR_ENTRY):
                self.assertEqual(self.client.get(bind.oid), [bind])
        for triple in ((IP_FORWARDING, "i", "2"), (f"{IP_ADDR_ENTRY}.2.10.0.0.1", "i", "7")):
            self.assertEqual(self.client.set_error(triple), "notWritable")

    def test_gives_back_what_it_took(self):
        self.start_home()
        self.wait_until_served_by_us()
        self.leave_home()
        eventually(lambda: not self.is_served_by_us(), "ipAddrTable is still ours")
        self.assertTrue(self.client.get(f"{IP_ADDR_ENTRY}.2.10.0.0.1")[0].exists, "snmpd's own table must be back")
        self.assertTrue(self.client.get(IP_FORWARDING)[0].exists)

    def assert_idle(self, program):
        def switches():
            with open(f"/proc/{program.pid}/status", encoding="ascii") as status:
                return int(re.search(r"^voluntary_ctxt_switches:\s+(\d+)", status.read(), re.MULTILINE)[1])

        def is_quiet():  # for a second, in which a program that is busy without work is never
            before = switches()
            time.sleep(1)
            return switches() - before < 20

        eventually(is_quiet, f"{program.name} is busy without work")


class SubagentTest(Home, SnmpdCase):
    def start_master(self):
        self.configure_snmpd("master agentx", f"agentXSocket {self.socket}")
        self.master = self.start_snmpd()

    def start_home(self):
        self.start_mirror()
        self.start_master()
        self.home = self.start_subagent()

    def leave_home(self):
        self.assertEqual(self.home.stop(), 0)

    def test_waits_for_its_master_and_finds_it_again(self):
        self.start_mirror()
        eventually(lambda: self.namespace.run("ls", self.store, check=False).stdout, "the mirror makes no store")
        self.write_configuration("quorinKernelIpHeader any\n")
        agent = self.start_subagent("-Dagentx/subagent")
        eventually(lambda: agent.output().count("agentx/subagent: opening session") >= 3, "the agent does not try again")
        said = agent.output().split(f"no AgentX master answers at {self.socket} yet")
        self.assertEqual(len(said), 2, agent.output())
        said = [line for line in said[1].splitlines()[1:] if not line.startswith("agentx/subagent: ")]
        self.assertEqual(len(said), 1, "more than that it serves")
        for stop in (signal.SIGTERM, signal.SIGKILL, signal.SIGKILL):
            self.start_master()
            self.wait_until_served_by_us()
            self.assertEqual(self.client.ip_addr_rows(), kernel_rows(self.namespace))
            self.master.is_expected_to_run = False
            self.master.signal(stop)
            self.master.process.wait(10)
        self.assertEqual(agent.output().count("subagent connected"), 3)
        self.assertNotIn("registering pdu failed", agent.output())

    def test_reload_keeps_one_session(self):
        self.start_home()
        self.wait_until_served_by_us()
        for count in (1, 2):
            self.home.signal(signal.SIGHUP)
            eventually(lambda: self.home.output().count("read again") == count, "no reload")
        self.assert_idle(self.home)
        self.assertTrue(self.is_served_by_us())
        self.assertNotIn("re-opened", self.home.output())
        self.assertNotIn("duplicate", self.master.output())

    def test_options_that_make_no_sense_are_refused(self):
        for options, text in ((("udp:127.0.0.1:1161",), "a subagent (-X) does not listen"), (("-x", ""), "-x is empty")):
            agent = self.start_subagent(*options)
            self.assertEqual(agent.wait(), 1)
            self.assertIn(text, agent.output())


class PluginTest(Home, SnmpdCase):
    def configure(self, *lines):
        self.configure_snmpd(*lines, f"dlmod quorin {PLUGIN}", f"quorinStore {self.store}")

    def start_home(self, *options):
        self.start_mirror()
        self.configure()
        self.home = self.start_snmpd(*options, environment=plugin_environment())

    def leave_home(self):
        self.configure_snmpd()
        self.home.signal(signal.SIGHUP)

    def test_reload_does_not_interrupt_and_takes_settings_anew(self):
        self.start_home()
        self.wait_until_served_by_us()
        self.home.signal(signal.SIGHUP)
        end = time.monotonic() + 1
        while time.monotonic() < end:
            self.assertTrue(self.is_served_by_us())
        self.assertEqual(self.home.output().count("quorin: version"), 1)
        self.assert_idle(self.home)

        other = os.path.join(self.directory, "other")
        self.configure_snmpd(f"dlmod quorin {PLUGIN}", f"quorinStore {other}", "quorinDisableObjects nonsense")
        self.home.signal(signal.SIGHUP)
        self.home.wait_for_output(re.compile(f"{other}.*"))
        self.home.wait_for_output(re.compile("there is no object group 'nonsense'"))
        eventually(lambda: not self.is_served_by_us(), "the rows of the store that was left stay")
        self.configure()
        self.home.signal(signal.SIGHUP)
        self.wait_until_served_by_us()

        self.leave_home()
        eventually(lambda: "quorin: unloaded" in self.home.output(), "not unloaded")
        self.configure()
        self.home.signal(signal.SIGHUP)
        self.wait_until_served_by_us()

    def test_in_the_background(self):
        self.start_mirror()
        self.configure()
        pid_file = os.path.join(self.directory, "pid")
        log = os.path.join(self.directory, "log")
        starter = self.start(SNMPD, "-C", "-c", self.snmpd_configuration, "-Lf", log, "-p", pid_file, "-I", "-smux",
                             f"udp:127.0.0.1:{PORT}", environment=plugin_environment())
        self.assertEqual(starter.wait(), 0)

        def daemon():  # which writes the file after its parent has ended
            if not os.path.exists(pid_file):
                return 0
            with open(pid_file, encoding="ascii") as file:
                return int(file.read().strip() or 0)

        pid = eventually(daemon, "snmpd writes no pid file")
        try:
            self.wait_until_served_by_us()
        finally:
            os.kill(pid, signal.SIGTERM)
        eventually(lambda: not os.path.exists(f"/proc/{pid}"), "snmpd does not stop")

    def test_as_another_user(self):
        os.chmod(self.directory, 0o755)
        state = os.path.join(self.directory, "state-snmpd")
        os.mkdir(state)
        shutil.chown(state, "nobody", "nogroup")
        self.start_home("-u", "nobody", "-g", "nogroup")
        self.home.wait_for_output(re.compile("lock.mdb"))
        eventually(self.client.answers, "snmpd does not answer")
        self.assertFalse(self.is_served_by_us())
        os.chown(os.path.join(self.store, "lock.mdb"), -1, pwd.getpwnam("nobody").pw_gid)
        self.wait_until_served_by_us()

    def test_shows_nothing_but_its_entry_points(self):
        shown = self.namespace.run("nm", "-D", "--defined-only", "--demangle", PLUGIN).stdout.split("\n")
        names = {line.split(" ", 2)[2].split("(")[0] for line in shown if line}
        self.assertLessEqual({"init_quorin", "deinit_quorin", "init_IpBase", "unregister_IpBase"}, names)
        self.assertEqual([name for name in names if not re.match(r"(init|deinit|unregister)_", name)], [])


if __name__ == "__main__":
    main()
