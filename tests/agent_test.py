"""Who is answered, and how the pair of programs is reconfigured and stopped. See also host/quorind_test.cpp."""

import signal

from harness import Client, SystemCase, eventually, main
from harness.snmp import IP_FORWARDING, SYS_UP_TIME

V3 = ("-v3", "-u", "alice", "-l", "authPriv", "-a", "SHA", "-A", "authentic-pass", "-x", "AES",
      "-X", "private-pass")


class AgentTest(SystemCase):
    def test_versions_and_access(self):
        self.write_configuration("rocommunity public 127.0.0.1\n"
                                 "createUser alice SHA authentic-pass AES private-pass\nrouser alice priv\n")
        self.start_mirror()
        self.start_agent()

        def client(*access):
            return Client(self.namespace, access=access, timeout=1)

        for access in (("-v1", "-c", "public"), ("-v2c", "-c", "public"), V3):
            with self.subTest("answered", access=access):
                asked = client(*access)
                eventually(asked.answers, "no answer", timeout=15)
                eventually(lambda: asked.has(IP_FORWARDING), "no ipForwarding")
                self.assertIn("127.0.0.1", asked.ip_addr_rows(asked.walk))
        wrong_password = [*V3[:-1], "other-pass-word"]
        no_privacy = V3[:4] + ("authNoPriv",) + V3[5:9]
        for access in (("-v2c", "-c", "private"), wrong_password, no_privacy):
            with self.subTest("not answered", access=access):
                self.assertFalse(client(*access).answers())

    def test_no_community_without_a_configuration(self):
        self.write_configuration("")
        self.start_mirror()
        agent = self.start_agent()
        eventually(lambda: ":1161 " in self.namespace.run("ss", "-Hlun").stdout, "the agent does not listen")
        for community in ("public", "private"):
            self.assertFalse(Client(self.namespace, access=("-v2c", "-c", community), timeout=1).answers())
        self.assertEqual(agent.stop(), 0)

    def test_reload_takes_the_configuration_anew(self):
        self.start_system()
        other = Client(self.namespace, access=("-v2c", "-c", "other"), timeout=1)
        self.assertFalse(other.answers())
        self.write_configuration("rocommunity other 127.0.0.1\n")
        self.agent.signal(signal.SIGHUP)
        eventually(other.answers, "the new community is not known", timeout=10)
        self.assertFalse(Client(self.namespace, timeout=1).answers(), "the old community still is")
        self.assertIn("127.0.0.1", other.ip_addr_rows())
        self.assertEqual(other.get(IP_FORWARDING)[0].value, "2")

    def test_quiet_and_clean_stop(self):
        self.start_system()
        self.assertTrue(self.client.get(SYS_UP_TIME)[0].exists)
        self.assertEqual([self.agent.stop(), self.mirror.stop()], [0, 0])
        for program in (self.agent, self.mirror):
            self.assertNotRegex(program.output(), r"(?i)\b(error|cannot|failed|mibs?)\b", program.name)

    def test_interrupt_stops_like_terminate(self):
        self.start_system()
        for program in (self.agent, self.mirror):
            program.signal(signal.SIGINT)
            self.assertEqual(program.wait(), 0, program.name)


if __name__ == "__main__":
    main()
