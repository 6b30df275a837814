"""The forwarding scalars follow the kernel, and nothing can be set."""

from harness import Client, SystemCase, eventually, main
from harness.snmp import IP_ADDR_ENTRY, IP_FORWARDING, IPV6_IP_FORWARDING

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
        self.namespace.add_interface("a0", "10.0.0.1/24")
        eventually(lambda: "10.0.0.1" in self.client.ip_addr_rows(), "10.0.0.1 not served")
        rows = self.client.ip_addr_rows()
        triples = [(IP_FORWARDING, "i", "1"), (IPV6_IP_FORWARDING, "i", "1"),
                   *((f"{IP_ADDR_ENTRY}.{column}.10.0.0.1", kind, value)
                     for column, kind, value in (("1", "a", "10.0.0.9"), ("2", "i", "7"), ("3", "a", "255.0.0.0"),
                                                 ("4", "i", "1"), ("5", "i", "1"))),
                   (f"{IP_ADDR_ENTRY}.1.10.0.0.77", "a", "10.0.0.77")]
        version1 = Client(self.namespace, access=("-v1", "-c", "private"))
        for triple in triples:
            with self.subTest(set=triple):
                self.assertEqual(self.client.set_error(triple), "notWritable")
                # SNMPv1 has no notWritable; RFC 3584 section 4.3 makes it noSuchName.
                self.assertEqual(version1.set_error(triple), "noSuchName")
        with self.subTest("several at once"):
            self.assertEqual(self.client.set_error(triples[0], triples[1]), "notWritable")
        with self.subTest("a value of the wrong type"):
            self.assertEqual(self.client.set_error((IP_FORWARDING, "s", "on")), "notWritable")
        self.assertEqual([self.value(oid) for oid, _ in SWITCHES], [NOT_FORWARDING, NOT_FORWARDING])
        self.assertEqual(self.namespace.run("cat", "/proc/sys/net/ipv4/ip_forward").stdout.strip(), "0")
        self.assertEqual(self.client.ip_addr_rows(), rows)


if __name__ == "__main__":
    main()
