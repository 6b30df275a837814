"""ipAddrTable is, row for row, what the kernel has."""

import random

from harness import Namespace, SystemCase, eventually, kernel_rows, main


class AddressesTest(SystemCase):
    def expect_rows(self, expected=None):
        """The agent's rows become the expected ones, by default the kernel's, and nothing else."""
        expected = kernel_rows(self.namespace) if expected is None else expected
        eventually(lambda: self.client.ip_addr_rows() == expected,
                   lambda: f"agent {self.client.ip_addr_rows()}\nexpected {expected}")

    def test_rows_that_were_there_before_the_mirror(self):
        self.namespace.add_interface("a0", "10.0.0.1/24", "10.0.0.2/24", "172.16.5.1/12")
        self.namespace.add_interface("a1", "192.0.2.1/31")
        self.namespace.add_interface("a2")
        self.start_system()
        self.expect_rows()
        rows = self.client.ip_addr_rows()
        self.assertEqual(rows["127.0.0.1"], (1, "255.0.0.0"))
        self.assertEqual(rows["192.0.2.1"], (self.namespace.if_index("a1"), "255.255.255.254"))
        self.assertEqual(len(rows), 5)

    def test_every_mask(self):
        self.start_system()
        self.namespace.add_interface("a0")
        lines = [f"addr add 10.{length}.0.1/{length} dev a0" for length in range(33)]
        self.namespace.ip_batch(lines)
        self.expect_rows()
        masks = {address: mask for address, (_, mask) in self.client.ip_addr_rows().items()}
        self.assertEqual(masks["10.0.0.1"], "0.0.0.0")
        self.assertEqual(masks["10.1.0.1"], "128.0.0.0")
        self.assertEqual(masks["10.32.0.1"], "255.255.255.255")

    def test_order_is_the_order_of_the_address_bytes(self):
        self.start_system()
        self.namespace.add_interface("a0")
        addresses = ["9.255.255.255", "10.0.0.1", "10.0.0.128", "10.0.0.255", "10.0.1.0", "100.1.1.1",
                     "127.255.0.1", "128.0.0.1", "200.0.0.1", "223.255.255.254"]
        shuffled = random.Random(1).sample(addresses, len(addresses))
        self.namespace.ip_batch([f"addr add {address}/32 dev a0" for address in shuffled])
        self.expect_rows()
        walked = [bind.value for bind in self.client.walk("1.3.6.1.2.1.4.20.1.1")]
        in_order = sorted([*addresses, "127.0.0.1"], key=lambda text: [int(part) for part in text.split(".")])
        self.assertEqual(walked, in_order)

    def test_interface_down_up_renamed_and_deleted(self):
        self.namespace.add_interface("a0", "10.0.0.1/24", "10.0.0.2/32")
        self.namespace.add_interface("a1", "10.1.0.1/24")
        self.start_system()
        before = kernel_rows(self.namespace)
        self.expect_rows(before)
        with self.subTest("down: the addresses stay configured"):
            self.namespace.ip("link", "set", "a0", "down")
            self.expect_rows(before)
        with self.subTest("renamed: the same rows under the same ifIndex"):
            self.namespace.ip("link", "set", "a0", "name", "b0")
            self.namespace.add_address("b0", "10.0.0.3/32")
            before = kernel_rows(self.namespace)
            self.assertIn("10.0.0.3", before)
            self.expect_rows(before)
        with self.subTest("up again"):
            self.namespace.ip("link", "set", "b0", "up")
            self.expect_rows(before)
        with self.subTest("deleted: its rows go, the others stay"):
            self.namespace.ip("link", "del", "b0")
            self.expect_rows()
            self.assertEqual(set(self.client.ip_addr_rows()), {"127.0.0.1", "10.1.0.1"})
        with self.subTest("the name comes back as another interface"):
            self.namespace.add_interface("b0", "10.0.0.1/16")
            self.expect_rows()

    def test_interface_moved_to_another_namespace_takes_its_rows_along(self):
        self.start_system()
        self.namespace.add_interface("a0", "10.0.0.1/24")
        self.expect_rows()
        other = Namespace()
        self.addCleanup(other.close)
        self.namespace.ip("link", "set", "a0", "netns", other.name)
        self.expect_rows()
        self.assertEqual(set(self.client.ip_addr_rows()), {"127.0.0.1"})

    def test_point_to_point_address_is_the_local_one(self):
        self.start_system()
        self.namespace.add_interface("a0")
        self.namespace.add_address("a0", "10.0.0.1", "peer", "10.9.9.9/32")
        a0 = self.namespace.if_index("a0")
        self.expect_rows({"127.0.0.1": (1, "255.0.0.0"), "10.0.0.1": (a0, "255.255.255.255")})

    def test_deleting_the_first_address_of_a_network(self):
        self.start_system()
        for promote, left in (("0", set()), ("1", {"10.0.0.2", "10.0.0.3"})):
            with self.subTest(promote_secondaries=promote):
                name = f"a{promote}"
                self.namespace.add_interface(name)
                self.namespace.sysctl(f"net.ipv4.conf.{name}.promote_secondaries", promote)
                self.namespace.sysctl("net.ipv4.conf.all.promote_secondaries", promote)
                for address in ("10.0.0.1/24", "10.0.0.2/24", "10.0.0.3/24"):
                    self.namespace.add_address(name, address)
                self.expect_rows()
                self.namespace.del_address(name, "10.0.0.1/24")
                self.expect_rows()
                self.assertEqual(set(self.client.ip_addr_rows()), {"127.0.0.1"} | left)

    def test_prefix_length_changed(self):
        self.start_system()
        self.namespace.add_interface("a0", "10.0.0.1/24")
        self.expect_rows()
        self.namespace.ip_batch(["addr del 10.0.0.1/24 dev a0", "addr add 10.0.0.1/16 dev a0"])
        self.expect_rows()
        self.assertEqual(self.client.ip_addr_rows()["10.0.0.1"][1], "255.255.0.0")

    def test_one_address_with_two_prefix_lengths_is_one_row(self):
        self.start_system()
        self.namespace.add_interface("a0", "10.0.0.1/24")
        self.expect_rows()
        self.namespace.add_address("a0", "10.0.0.1/16")
        self.namespace.add_address("a0", "10.0.0.2/32")  # when this one is served, the one before it was seen
        a0 = self.namespace.if_index("a0")
        both = {"127.0.0.1": (1, "255.0.0.0"), "10.0.0.1": (a0, "255.255.255.0"),
                "10.0.0.2": (a0, "255.255.255.255")}
        self.expect_rows(both)
        self.namespace.del_address("a0", "10.0.0.1/24")
        self.expect_rows({**both, "10.0.0.1": (a0, "255.255.0.0")})

    def test_one_address_on_two_interfaces_is_one_row(self):
        self.start_system()
        self.namespace.add_interface("a1", "10.0.0.1/24")
        self.expect_rows()
        self.namespace.add_interface("a0", "10.0.0.1/32")
        a0, a1 = self.namespace.if_index("a0"), self.namespace.if_index("a1")
        loopback = {"127.0.0.1": (1, "255.0.0.0")}
        self.expect_rows({**loopback, "10.0.0.1": (a0, "255.255.255.255")})
        with self.subTest("the row passes to the interface that is left"):
            self.namespace.del_address("a0", "10.0.0.1/32")
            self.expect_rows({**loopback, "10.0.0.1": (a1, "255.255.255.0")})
        with self.subTest("the last one gone, the row is gone"):
            self.namespace.ip("link", "del", "a1")
            self.expect_rows(loopback)

    def test_ipv6_addresses_make_no_rows(self):
        self.start_system()
        self.namespace.add_interface("a0", "2001:db8::1/64", "10.0.0.1/24")
        self.expect_rows()

    def test_random_changes(self):
        self.start_system()
        seed = random.randrange(1 << 32)
        choice = random.Random(seed)
        interfaces = ["a0", "a1", "a2", "a3"]
        for interface in interfaces:
            self.namespace.add_interface(interface)
        present = {}
        for _ in range(5):
            lines = []
            for _ in range(200):
                host = choice.randrange(120)
                if host in present:
                    lines.append(f"addr del 10.0.0.{host}/32 dev {present.pop(host)}")
                else:
                    present[host] = choice.choice(interfaces)
                    lines.append(f"addr add 10.0.0.{host}/32 dev {present[host]}")
            self.namespace.ip_batch(lines)
            with self.subTest(seed=seed):
                self.assertEqual(len(kernel_rows(self.namespace)), len(present) + 1)
                self.expect_rows()

    def test_two_thousand_addresses(self):
        self.start_system()
        self.namespace.add_interface("a0")
        hosts = [f"10.{n // 250}.{n % 250}.1/32" for n in range(2000)]
        self.namespace.ip_batch([f"addr add {host} dev a0" for host in hosts])
        self.expect_rows()
        self.namespace.ip_batch([f"addr del {host} dev a0" for host in hosts[:1000]])
        self.expect_rows()
        self.assertEqual(len(self.client.ip_addr_rows()), 1001)


if __name__ == "__main__":
    main()
