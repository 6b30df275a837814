"""The forwarding scalars follow the kernel."""

from harness import SystemCase, eventually, main
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


if __name__ == "__main__":
    main()
