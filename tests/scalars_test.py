"""The forwarding scalars follow the kernel, and nothing can be set."""

from harness import Client, SystemCase, eventually, main
from harness.snmp import IP_FORWARDING, IPV6_IP_FORWARDING

SWITCHES = ((IP_FORWARDING, "net.ipv4.ip_forward"), (IPV6_IP_FORWARDING, "net.ipv6.conf.all.forwarding"))
FORWARDING, NOT_FORWARDING = "1", "2"


class ScalarsTest(SystemCase):
    def value(self, oid):
        return self.client.get(oid)[0].value

    def test_forwarding_follows_the_kernel(self):
        self.namespace.sysctl("net.ipv4.ip_forward", 1)
        self.start_system()
        self.assertEqual([self.value(oid) for oid, _ in SWITCHES], [FORWARDING, NOT_FORWARDING])
        for oid, name in SWITCHES:
            for switch, expected in (("1", FORWARDING), ("0", NOT_FORWARDING), ("1", FORWARDING)):
                with self.subTest(name=name, switch=switch):
                    self.namespace.sysctl(name, switch)
                    eventually(lambda: self.value(oid) == expected, lambda: f"served {self.value(oid)}")

    def test_set_is_refused_and_changes_nothing(self):
        self.start_system()
        triples = [(oid, "i", "1") for oid, _ in SWITCHES]
        version1 = Client(self.namespace, access=("-v1", "-c", "private"))
        for refused in ((triples[0],), (triples[1],), triples, [(IP_FORWARDING, "s", "on")]):
            with self.subTest(set=refused):
                self.assertEqual(self.client.set_error(*refused), "notWritable")
                # SNMPv1 has no notWritable; RFC 3584 section 4.3 makes it noSuchName.
                self.assertEqual(version1.set_error(*refused), "noSuchName")
        self.assertEqual([self.value(oid) for oid, _ in SWITCHES], [NOT_FORWARDING, NOT_FORWARDING])
        self.assertEqual(self.namespace.run("cat", "/proc/sys/net/ipv4/ip_forward").stdout.strip(), "0")


if __name__ == "__main__":
    main()
