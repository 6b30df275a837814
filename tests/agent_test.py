"""What the pair of programs answers without a configuration, and what it says. See also host/agent/quorind_test.py."""

import json
import os
import shutil
import socket

from harness import SystemCase, eventually, main
from harness.snmp import IP_FORWARDING
from harness.tables import IF_STATS, ROUTE, SW_FWD, walk_table
from harness.tools import read_file, run_command

MOST_LOGGED = 20_000  # bytes for 1,000 requests
# SNMPv3 messages that take answers of 0 to 99 bytes (in BER). Below 484 a message is dropped (RFC 3412, 6).
BROKEN = [bytes.fromhex(f"3015 020103 300c020101 0201{size:02x} 040104020103 0400 3000") for size in range(100)]
RED = "red"


class AgentTest(SystemCase):
    communities = (RED,)

    def test_no_community_without_a_configuration(self):
        self.write_file("quorind.conf", "")
        self.start_mirror()
        agent = self.start_agent()
        eventually(lambda: ":1161 " in self.namespace.run("ss", "-Hlun").stdout, "the agent does not listen")
        for community in ("public", "private"):
            self.assertFalse(self.community(community, timeout=1).answers())
        self.assertEqual(agent.stop(), 0)

    def test_quiet_and_clean_stop(self):
        self.start_system()
        self.assertTrue(self.client.answers())
        for program in (self.agent, self.mirror):
            self.assertEqual(program.stop(), 0)
            self.assertNotRegex(program.output(), r"(?i)\b(error|cannot|failed|mibs?)\b", program.name)

    def test_an_agent_without_capabilities_serves_all_but_the_counters_of_namespaces(self):
        self.vrfs.add(RED, "link set lo up")
        self.namespace.add_interface("a0", "10.0.0.1/24", "2001:db8::1/64")
        mirror = self.start_mirror()
        os.chmod(self.directory, 0o711)
        eventually(lambda: os.path.exists(f"{self.store}/lock.mdb"), "no store")
        for path in (self.store, *(f"{self.store}/{name}" for name in os.listdir(self.store))):
            shutil.chown(path, group="nogroup")
        agent = self.start_agent("-u", "nobody", "-g", "nogroup", "--netns-dir", self.vrfs.path)
        for name in (None, RED):
            self.wait_for_context(self.client_of(name))
            self.expect_context(name)
        self.expect_vrf_tables()
        self.assertNotEqual(walk_table(self.client, SW_FWD)[(2,)][3], "0")
        self.assertEqual([row[3] for row in walk_table(self.client_of(RED), SW_FWD).values()], ["0", "0"])
        self.assertEqual(agent.output().count("no CAP_SYS_ADMIN"), 1)
        self.assertRegex(read_file(f"/proc/{agent.pid}/status"), r"CapEff:\t0{16}\n")
        for program in (agent, mirror):
            with self.subTest(f"system calls of {program.name} are filtered"):
                self.assertRegex(read_file(f"/proc/{program.pid}/status"), r"Seccomp:\t2\n")

    def test_the_rules_of_tcp_wrappers_count_while_they_are_there(self):
        self.start_system()
        rules = self.write_file("hosts.deny", "# ALL: ALL\n")
        self.assertTrue(self.client.answers())
        # In the agent's own mount namespace.
        run_command(["nsenter", "-m", "-t", str(self.agent.pid), "mount", "--bind", rules, "/etc/hosts.deny"])
        impatient = self.client.impatient()
        for line, is_allowed in (("ALL: 192.0.2.1", True), ("ALL: 127.0.0.1", False), ("", True), ("ALL: ALL", False)):
            with self.subTest(rule=line):
                self.write_file("hosts.deny", f"# a rule\n{line}\n")
                eventually(lambda: impatient.answers() == is_allowed, "the rule has no effect")

    def test_serves_and_reloads_with_debugging_on(self):
        for option, lines in (("-D", ()), ("-DALL", ()), ("-Dtrace", ()), ("-Dcallback", ()),
                              ("-f", ("[snmp] doDebugging 1", "[snmp] debugTokens trace"))):
            with self.subTest(option=option):
                self.configure(*lines)
                agent = self.start_agent(option)
                eventually(self.client.impatient().answers, "no answer")
                agent.reload()
                self.assertTrue(self.client.answers())
                if option != "-Dcallback":
                    self.assertRegex(agent.output(), r"\btrace: init_IpBase\(\): IpBase\.cpp, \d+:\n")
                self.assertEqual(agent.stop(), 0)

    def test_the_control_socket_answers_whatever_it_is_asked(self):
        path = os.path.join(self.directory, "control")
        self.configure(f"quorinControlSocket {path}")
        self.start_mirror()
        self.start_agent()
        self.wait_until_complete()

        def connect():
            client = socket.socket(socket.AF_UNIX)
            self.addCleanup(client.close)
            client.settimeout(10)
            client.connect(path)
            return client, client.makefile("rw", encoding="utf-8")

        def ask(lines, request):
            lines.write(request + "\n")
            lines.flush()
            return json.loads(lines.readline())

        client, lines = connect()
        status = ask(lines, '{"request":"status"}')
        self.assertEqual((status["publisher"]["state"], status["ready"], status["vrfs"]), ("alive", True, 1))
        self.assertEqual(ask(lines, '{"request":"contexts"}')["contexts"],
                         [{"context": "", "vrf": "default", "state": "ready"}])
        self.assertGreater(ask(lines, '{"request":"turns"}')["turns"][0]["count"], 0)
        for wrong in ("x", "[]", "{}", '{"request":7}', '{"request":"no"}', '{"request":"trace"}', "\0",
                      '{"request":"trace","levels":"IpBase"}', "[" * 4000):
            self.assertIn("error", ask(lines, wrong), wrong)
        self.assertIn("tracing", ask(lines, '{"request":"trace","levels":"*/0-9"}'))
        self.client.get(IP_FORWARDING)
        facilities = iter(lambda: json.loads(lines.readline())["facility"], "IpBase")
        self.assertLess(len([facility for facility in facilities if facility]), 10000)
        self.assertNotIn("IpBase/", self.agent.output())
        flood = connect()[0]
        with self.assertRaises(OSError):
            for _ in range(100):
                flood.sendall(b"y" * 5000)
                flood.recv(1)
        others = [connect() for _ in range(20)]
        self.assertIn("version", ask(others[-1][1], '{"request":"status"}'))
        self.agent.kill()
        self.start_agent()  # finds the socket of the one before
        self.wait_until_complete()
        self.assertIn("version", ask(connect()[1], '{"request":"status"}'))
        self.assertEqual(os.stat(path).st_mode & 0o777, 0o660)

    def test_no_reader_can_fill_the_log(self):
        self.namespace.add_interface("a0", "10.0.0.1/24")
        header = self.write_file("snmp", "Ip: Unknown\nIp: 1\n")
        mirror = self.start_mirror()
        agent = self.start_agent(environment={"PROC_NET_SNMP": header})
        eventually(lambda: self.client.impatient().has(f"{ROUTE}.16.10.0.0.0.255.255.255.0.0.0.0.0.0"), "no route")

        def send_broken(_):
            self.namespace.send("127.0.0.1", BROKEN, port=1161)
            self.assertTrue(self.client.answers())

        def expect_little(what, send):
            before = os.path.getsize(agent.log_path)
            for part in range(10):
                send(part)
            with self.subTest(what):
                self.assertLess(os.path.getsize(agent.log_path) - before, MOST_LOGGED)

        expect_little("an index out of range", lambda part: self.client.ask(
            "snmpgetnext", *(f"{IF_STATS}.3.{2**31 + 100 * part + n}.1" for n in range(100))))
        expect_little("counters that cannot be read", lambda _: self.client.get(
            *(f"{SW_FWD}.{3 + n % 43}.1" for n in range(100))))
        expect_little("messages that net-snmp drops", send_broken)
        self.assertEqual(mirror.stop(), 0)
        shutil.rmtree(self.store)
        agent.wait_for_output("start a publisher")
        expect_little("the store is away", lambda _: self.client.ask("snmpgetnext", *[ROUTE] * 100))
        self.assertEqual(agent.stop(), 0)
        with self.subTest("what is not written is counted"):
            self.assertRegex(agent.output(), r"is out of range! .* \.\.\. repeated 997 times\n")
            self.assertRegex(agent.output(), r"bad msgMaxSize .* \.\.\. repeated 997 times\n")


if __name__ == "__main__":
    main()
