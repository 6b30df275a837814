"""ipAddrTable is, row for row, what the kernel has."""

import random

from harness import SystemCase, kernel_rows, main


class AddressesTest(SystemCase):
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


if __name__ == "__main__":
    main()
