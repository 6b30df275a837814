"""The agent as its users meet it: a real quorind on a port of its own, asked with net-snmp's tools."""

import contextlib
import os
import pathlib
import re
import resource
import shutil
import signal
import socket
import subprocess
import tempfile
import unittest

from harness.tools import eventually, read_file

QUORIND, VERSION = os.environ["QUORIND"], os.environ["QUORIN_VERSION"]
PUBLIC = ("-v2c", "-c", "public")
CAROL = ("-v3", "-u", "carol", "-l", "authPriv", "-a", "SHA", "-A", "authpass99", "-x", "AES", "-X", "privpass99")
SYSTEM = ".1.3.6.1.2.1.1"
LOCATION = f"{SYSTEM}.6.0"
# A GETBULK of 100 objects from sysDescr on over SNMPv2c, as "public".
BULK = bytes.fromhex("3025020101 04067075626c6963 a518020101020100020164 300d300b 06072b060102010101 0500")
ENGINE_BOOTS = ".1.3.6.1.6.3.10.2.1.2.0"


class QuorindTest(unittest.TestCase):
    def setUp(self):
        self.directory = tempfile.mkdtemp(prefix="quorind-test-")
        self.addCleanup(shutil.rmtree, self.directory)
        self.environment = {**os.environ, "MIBS": "", "SNMP_PERSISTENT_DIR": f"{self.directory}/state"}
        self.configuration = f"{self.directory}/quorind.conf"
        self.log = f"{self.directory}/log"
        with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as any_port:
            any_port.bind(("127.0.0.1", 0))
            self.address = f"udp:127.0.0.1:{any_port.getsockname()[1]}"
        self.usual = ("-f", "-C", "-c", self.configuration, "--store", f"{self.directory}/store", self.address)
        self.write("rocommunity public 127.0.0.1\nrwcommunity private 127.0.0.1\nrouser carol priv\n"
                   'createUser carol SHA "authpass99" AES "privpass99"\nsysLocation first place\n')

    def write(self, text):
        with open(self.configuration, "w", encoding="utf-8") as file:
            file.write(text)

    def run_tool(self, *command):
        return subprocess.run(command, env=self.environment, capture_output=True, text=True, timeout=60, check=False)

    def ask(self, tool, access, *arguments):
        done = self.run_tool(tool, "-r1", "-t2", "-On", *access, self.address, *arguments)
        return done.stdout + done.stderr

    def start(self):
        with open(self.log, "w", encoding="utf-8") as log:
            agent = subprocess.Popen([QUORIND, *self.usual], env=self.environment, stdout=log, stderr=log)
        self.addCleanup(agent.wait)
        self.addCleanup(agent.kill)
        self.wait_for("serves")
        return agent

    def wait_for(self, text):
        eventually(lambda: text in read_file(self.log), lambda: f"{text}\n{read_file(self.log)}")

    def stop(self, agent, number=signal.SIGTERM):
        agent.send_signal(number)
        self.assertEqual(agent.wait(60), 0)

    def test_serves_the_system_group_read_only_and_nothing_of_the_stock_ip_modules(self):
        agent = self.start()
        for access in (("-v1", "-c", "public"), PUBLIC, CAROL):
            self.assertIn('"first place"', self.ask("snmpget", access, LOCATION))
        for access in (("-v2c", "-c", "other"), (*CAROL[:-1], "other-pass"), (*CAROL[:4], "authNoPriv", *CAROL[5:9])):
            self.assertNotIn("first place", self.ask("snmpget", access, LOCATION))
        system = self.ask("snmpwalk", PUBLIC, SYSTEM)
        for number in range(1, 8):
            self.assertIn(f"{SYSTEM}.{number}.0 = ", system)
        # The stock modules would follow with ifNumber and icmpInMsgs. Of ours, only those that read the kernel themselves
        # answer without a publisher: ipSystemStatsTable.
        following = self.ask("snmpgetnext", PUBLIC, ".1.3.6.1.2.1.2", ".1.3.6.1.2.1.4.32", ".1.3.6.1.6.3.15")
        first, *others = (line.split(" = ")[0] for line in following.splitlines())
        self.assertTrue(first.startswith((".1.3.6.1.2.1.4.31.1.1.", ".1.3.6.1.2.1.11.1.0")), first)
        self.assertEqual(others, [".1.3.6.1.2.1.11.1.0", ".1.3.6.1.6.3.15.1.1.1.0"])
        for assignment in ((f"{SYSTEM}.4.0", "s", "me"), (".1.3.6.1.2.1.4.1.0", "i", "1"),
                           (".1.3.6.1.6.3.15.1.2.1.0", "i", "1"), (".1.3.6.1.6.3.16.1.5.1.0", "i", "1")):
            # SNMPv1 has no notWritable; RFC 3584 section 4.3 makes it noSuchName.
            for version, error in (("-v2c", "notWritable"), ("-v1", "noSuchName")):
                self.assertIn(error, self.ask("snmpset", (version, "-c", "private"), *assignment))
        self.stop(agent)

    def test_reads_its_configuration_again(self):
        agent = self.start()
        self.write("rocommunity secret 127.0.0.1\nrouser carol priv\nsysLocation second place\n")
        agent.send_signal(signal.SIGHUP)
        self.wait_for("read again")
        secret = ("-v2c", "-c", "secret")
        for access in (secret, CAROL):  # users live in the state, not in the file
            self.assertIn('"second place"', self.ask("snmpget", access, LOCATION))
        self.assertIn("Timeout", self.ask("snmpget", PUBLIC, LOCATION))
        os.remove(self.configuration)
        agent.send_signal(signal.SIGHUP)
        self.wait_for(f"the one in effect stays: cannot read the configuration file {self.configuration}")
        self.assertIn('"second place"', self.ask("snmpget", secret, LOCATION))
        self.stop(agent, signal.SIGINT)

    def test_keeps_users_and_engine_boots_over_restarts(self):
        agent = self.start()
        self.assertIn("= INTEGER: 1\n", self.ask("snmpget", CAROL, ENGINE_BOOTS))
        self.assertNotEqual(self.run_tool(QUORIND, *self.usual).returncode, 0)
        self.assertIn("= INTEGER: 1\n", self.ask("snmpget", CAROL, ENGINE_BOOTS))
        self.stop(agent)
        self.write("rouser carol priv\n")
        self.start()
        self.assertIn("= INTEGER: 2\n", self.ask("snmpget", CAROL, ENGINE_BOOTS), "the refused agent must not count")

    def test_wrong_settings_are_named_and_the_rest_holds(self):
        self.write("rocommunity public 127.0.0.1\nquorinNoSuchThing 1\nquorinDisableObjects everything\n"
                   "sysLocation here\nquorinVrfSysName\n")
        self.start()
        for text in ("line 2: Warning: Unknown token: quorinNoSuchThing.",
                     "line 3: Error: quorinDisableObjects: there is no object group 'everything'; known are: "
                     "route-tables, interface-tables, ip-mib-tables, mpls-l3vpn"):
            self.assertIn(f"{self.configuration}: {text}", read_file(self.log))
        self.assertIn("3 configuration lines were passed over, see above: correct or remove them; "
                      "quorind -H lists the directives that it knows", read_file(self.log))
        self.assertIn('"here"', self.ask("snmpget", PUBLIC, LOCATION))

    def test_tells_about_itself_and_in_one_line_what_it_cannot_start_with(self):
        self.start()
        base = ("-f", "-C", "-c", self.configuration)
        free, foreign = "udp:127.0.0.1:0", "udp:192.0.2.1:9999"
        for arguments, text in (
                ((*base, self.address), f"cannot listen on {self.address}: Address already in use; "),
                ((*base, foreign), f"cannot listen on {foreign}: Cannot assign requested address; "),
                ((*base, "pigeon:9999"), "cannot listen on pigeon:9999: "),
                ((*base[:-1], "/no/such.conf", free),
                 "cannot read the configuration file /no/such.conf: No such file or directory; "),
                ((*base[:-1], "/", free), "cannot read the configuration file /: Is a directory; "),
                ((*base, "-u", "no-such-user", free), "there is no user 'no-such-user' on this machine"),
                ((*base[1:], "-Le", "-g", "no-such-group", free), "there is no group 'no-such-group' on this machine"),
                (("-z",), "unknown option -z; "),
                (("--no-such-option",), "unknown option --no-such-option; "),
                (("--store",), "option --store needs an argument; "),
                *(((option, ""), f"{option} is empty; name a ") for option in ("--store", "--netns-dir", "-p")),
                (("-Lq",), "option -Lq chooses no log")):
            done = self.run_tool(QUORIND, *arguments)
            self.assertEqual((done.returncode, (done.stderr + done.stdout).count("\n")), (1, 1), done)
            self.assertTrue(done.stderr.startswith(f"quorind: {text}"), done.stderr)
        for option, text in (("--help", "usage: quorind"), ("-h", "--store DIR"), ("-v", f"quorind {VERSION}"),
                             ("-H", "rocommunity"), ("-H", "quorinDisableObjects")):
            done = self.run_tool(QUORIND, option)
            self.assertEqual(done.returncode, 0)
            self.assertIn(text, done.stdout + done.stderr)
        settings = re.findall(r"^ +(quorin\w+) ", done.stdout + done.stderr, re.MULTILINE)
        docs = pathlib.Path(__file__).parents[2] / "docs"
        for page, mark in (("configuration.md", "`"), ("man/quorind.conf.5.scd", "*")):
            text = read_file(docs / page)
            self.assertEqual([name for name in settings if f"{mark}{name}{mark}" not in text], [], page)

    def test_no_client_of_a_stream_silences_udp(self):
        tcp = ("127.0.0.1", int(self.address.rpartition(":")[2]))
        self.usual += (self.address.replace("udp", "tcp"),)
        agent = self.start()
        resource.prlimit(agent.pid, resource.RLIMIT_NOFILE, (64, 64))
        with contextlib.ExitStack() as clients:
            def connect():
                return clients.enter_context(socket.create_connection(tcp, 60))

            def expect_served():
                for address in (self.address, self.address.replace("udp", "tcp")):
                    self.assertIn("first place", self.run_tool("snmpget", "-t5", *PUBLIC, address, LOCATION).stdout)
                self.assertLess(len(os.listdir(f"/proc/{agent.pid}/fd")), 60)

            idle = [connect() for _ in range(30)]
            expect_served()
            self.assertEqual(idle[0].recv(1), b"", "the connection that is idle longest makes room")
            with self.subTest("a client that reads no answers"), self.assertRaises(OSError):
                deaf = connect()
                while True:
                    deaf.sendall(BULK)
            expect_served()
            with self.subTest("a message without an end"), self.assertRaises(OSError):
                endless = connect()
                endless.sendall(bytes.fromhex("30847fffff00"))
                while True:
                    endless.sendall(bytes(9999))
            expect_served()
            self.write("rocommunity public 127.0.0.1\nsysLocation first place\nquorinIdleTimeout 1\n")
            agent.send_signal(signal.SIGHUP)
            for client in idle:
                self.assertEqual(client.recv(1), b"", "an idle connection is closed")
        self.stop(agent)

    def test_goes_to_the_background_with_a_pid_file_and_a_log(self):
        pid_file = f"{self.directory}/pid"
        with open(f"{self.directory}/out", "w", encoding="utf-8") as out:
            subprocess.run([QUORIND, *self.usual[1:], "-p", pid_file, f"-Lf{self.log}"], env=self.environment,
                           stdout=out, stderr=out, timeout=60, check=True)
        eventually(lambda: os.path.exists(self.log) and "serves" in read_file(self.log), "the agent serves")
        pid = int(read_file(pid_file))
        try:
            self.assertIn('"first place"', self.ask("snmpget", PUBLIC, LOCATION))
        finally:
            os.kill(pid, signal.SIGTERM)
        eventually(lambda: not os.path.exists(pid_file), "the file goes when the agent does")
        self.assertEqual(read_file(f"{self.directory}/out"), "")


if __name__ == "__main__":
    unittest.main(verbosity=2)
