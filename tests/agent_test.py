"""What the pair of programs answers without a configuration, and what it says. See also host/agent/quorind_test.py."""

import os
import shutil

from harness import SystemCase, eventually, main
from harness.flood import GET, GET_NEXT, broken_request, flood, request
from harness.snmp import SYSTEM
from harness.tables import IF_STATS, ROUTE, SW_FWD

SYS_DESCR = f"{SYSTEM}.1.0"
MOST_LOGGED = 20_000  # bytes for 1,000 requests


class AgentTest(SystemCase):
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

    def test_no_reader_can_fill_the_log(self):
        self.write_file("quorind.conf", f"rocommunity public 127.0.0.1\nsysDescr {'x' * 99}\n")
        self.namespace.add_interface("a0", "10.0.0.1/24")
        header = self.write_file("snmp", "Ip: Unknown\nIp: 1\n")
        mirror = self.start_mirror()
        agent = self.start_agent(environment={"PROC_NET_SNMP": header})
        reader = self.community("public", timeout=0.2)
        eventually(lambda: reader.has(f"{ROUTE}.16.10.0.0.0.255.255.255.0.0.0.0.0.0"), "no route")

        def logged(*requests):
            before = os.path.getsize(agent.log_path)
            flood(self.namespace, *requests)
            return os.path.getsize(agent.log_path) - before

        kinds = {
            "an index out of range": ([request(GET_NEXT, [f"{IF_STATS}.3.{2**31 + i}.1"]) for i in range(1000)],),
            "counters that cannot be read": ([request(GET, [f"{SW_FWD}.{3 + i % 43}.1"]) for i in range(1000)],),
            "an answer larger than a datagram": ([request(GET, [SYS_DESCR] * 1300)] * 10,),
            "messages that net-snmp drops": ([request(GET, [SYS_DESCR])] * 1000,
                                             [broken_request(i % 100) for i in range(1000)]),
        }
        for kind, requests in kinds.items():
            with self.subTest(kind):
                self.assertLess(logged(*requests), MOST_LOGGED)
        with self.subTest("the store is away"):
            self.assertEqual(mirror.stop(), 0)
            shutil.rmtree(self.store)
            agent.wait_for_output("start a publisher")
            self.assertLess(logged([request(GET_NEXT, [ROUTE])] * 1000), MOST_LOGGED)
        self.assertEqual(agent.stop(), 0)
        with self.subTest("what is not written is counted, once a request"):
            self.assertRegex(agent.output(), r"is out of range! .* \.\.\. repeated 997 times\n")
            self.assertRegex(agent.output(), r"bad msgMaxSize .* \.\.\. repeated 997 times\n")


if __name__ == "__main__":
    main()
