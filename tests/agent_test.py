"""What the pair of programs answers without a configuration, and what it says. See also host/quorind_test.cpp."""

import os
import re
import shutil
import signal

from harness import Client, SystemCase, eventually, main
from harness.case import CONFIGURATION
from harness.flood import GET, GET_NEXT, broken_request, flood, request
from harness.snmp import SYS_UP_TIME

OURS = "1.3.6.1.4.1.32473.3"
SW_FWD_ENTRY, IF_STATS_ENTRY = f"{OURS}.1.1.1.1", f"{OURS}.27.1.1.1"
SYS_DESCR = "1.3.6.1.2.1.1.1.0"
CIDR_ENTRY = "1.3.6.1.2.1.4.24.4.1"
MOST_LOGGED = 20_000  # bytes for 1,000 requests


class AgentTest(SystemCase):
    def test_no_community_without_a_configuration(self):
        self.write_configuration("")
        self.start_mirror()
        agent = self.start_agent()
        eventually(lambda: ":1161 " in self.namespace.run("ss", "-Hlun").stdout, "the agent does not listen")
        for community in ("public", "private"):
            self.assertFalse(Client(self.namespace, access=("-v2c", "-c", community), timeout=1).answers())
        self.assertEqual(agent.stop(), 0)

    def test_quiet_and_clean_stop(self):
        self.start_system()
        self.assertTrue(self.client.get(SYS_UP_TIME)[0].exists)
        self.assertEqual([self.agent.stop(), self.mirror.stop()], [0, 0])
        for program in (self.agent, self.mirror):
            self.assertNotRegex(program.output(), r"(?i)\b(error|cannot|failed|mibs?)\b", program.name)

    def test_serves_and_reloads_with_debugging_on(self):
        for option, lines in (("-D", ""), ("-DALL", ""), ("-Dtrace", ""), ("-Dcallback", ""),
                              ("-f", "[snmp] doDebugging 1\n[snmp] debugTokens trace\n")):
            with self.subTest(option=option):
                self.write_configuration(CONFIGURATION + lines)
                agent = self.start_agent(option)
                eventually(self.client.impatient().answers, "no answer")
                agent.signal(signal.SIGHUP)
                agent.wait_for_output(re.compile("has been read again"), timeout=15)
                self.assertTrue(self.client.answers())
                if option != "-Dcallback":
                    self.assertRegex(agent.output(), r"\btrace: init_IpBase\(\): IpBase\.cpp, \d+:\n")
                self.assertEqual(agent.stop(), 0)

    def test_no_reader_can_fill_the_log(self):
        self.write_configuration(f"rocommunity public 127.0.0.1\nsysDescr {'x' * 99}\n")
        self.namespace.add_interface("a0", "10.0.0.1/24")
        header = os.path.join(self.directory, "snmp")
        with open(header, "w", encoding="ascii") as file:
            file.write("Ip: Unknown\nIp: 1\n")
        mirror = self.start_mirror()
        agent = self.start_agent(environment={"PROC_NET_SNMP": header})
        reader = Client(self.namespace, access=("-v2c", "-c", "public"), timeout=0.2)
        eventually(lambda: reader.has(f"{CIDR_ENTRY}.16.10.0.0.0.255.255.255.0.0.0.0.0.0"), "no route", timeout=15)

        def logged(*requests):
            before = os.path.getsize(agent.log_path)
            flood(self.namespace, *requests)
            return os.path.getsize(agent.log_path) - before

        kinds = {
            "an index out of range": ([request(GET_NEXT, [f"{IF_STATS_ENTRY}.3.{2**31 + i}.1"]) for i in range(1000)],),
            "counters that cannot be read": ([request(GET, [f"{SW_FWD_ENTRY}.{3 + i % 43}.1"]) for i in range(1000)],),
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
            agent.wait_for_output(re.compile("start a publisher"))
            self.assertLess(logged([request(GET_NEXT, [CIDR_ENTRY])] * 1000), MOST_LOGGED)
        self.assertEqual(agent.stop(), 0)
        with self.subTest("what is not written is counted, once a request"):
            self.assertRegex(agent.output(), r"is out of range! .* \.\.\. repeated 997 times\n")
            self.assertRegex(agent.output(), r"bad msgMaxSize .* \.\.\. repeated 997 times\n")


if __name__ == "__main__":
    main()
