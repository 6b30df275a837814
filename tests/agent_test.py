"""What the pair of programs answers without a configuration, and what it says. See also host/quorind_test.cpp."""

import re
import signal

from harness import Client, SystemCase, eventually, main
from harness.case import CONFIGURATION
from harness.snmp import SYS_UP_TIME


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


if __name__ == "__main__":
    main()
