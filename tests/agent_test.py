"""What the pair of programs answers without a configuration, and what it says. See also host/quorind_test.cpp."""

from harness import Client, SystemCase, eventually, main
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


if __name__ == "__main__":
    main()
