"""FRR's zebra, staticd and bgpd in VRF devices: what they put into the VRFs' tables through next-hop objects."""

import signal

from device_case import DeviceCase
from harness import eventually, main

VRFS = {"red": 65001, "blue": 65002, "green": 65003}
# red and blue peer by their addresses, over c-red and c-blue; blue and green over unnumbered links, u-blue and u-green, so
# that IPv4 routes have IPv6 next hops there; green imports red's routes.
STATIC = """
ip route 172.30.0.0/16 10.0.1.9
vrf {vrf}
 ip route 172.2{n}.0.0/16 10.0.0.9
 ip route 172.2{n}.1.0/24 10.0.0.9
 ip route 172.2{n}.1.0/24 10.0.0.10
 ip route 172.2{n}.2.0/24 blackhole
 ip route 172.2{n}.3.0/24 10.0.0.9 20
 ipv6 route 2001:db8:2{n}::/48 2001:db8::9
exit-vrf
router bgp {asn} vrf {vrf}
 bgp router-id 10.255.0.{n}
 no bgp ebgp-requires-policy
 timers bgp 3 9
"""
PEER = " neighbor {0} remote-as external\n"
FAMILIES = """
 address-family ipv4 unicast
  redistribute static
  redistribute connected
  {imports}
 exit-address-family
 address-family ipv6 unicast
  redistribute static
  {activate}
 exit-address-family
exit
"""


class FrrTest(DeviceCase):
    communities = tuple(VRFS)

    def vtysh(self, *lines):
        words = [word for line in lines for word in ("-c", line)]
        return self.namespace.run("vtysh", *words).stdout

    def start_frr(self):
        options = ("-u", "root", "-g", "root", "-f", "/dev/null", "--log", "stdout")
        return {name: self.start(f"/usr/lib/frr/{name}", *options) for name in ("zebra", "staticd", "bgpd")}

    def configure(self):
        text = ""
        for n, (vrf, asn) in enumerate(VRFS.items()):
            peers = {"red": ["10.100.0.2"], "blue": ["10.100.0.1", "u-blue interface"], "green": ["u-green interface"]}[vrf]
            activate = "".join(f"neighbor {peer.split()[0]} activate\n  " for peer in peers)
            text += STATIC.format(vrf=vrf, asn=asn, n=n) + "".join(map(PEER.format, peers)) + FAMILIES.format(
                imports="import vrf red" if vrf == "green" else "", activate=activate)
        file = f"{self.directory}/frr.conf"
        with open(file, "w", encoding="utf-8") as config:
            config.write(text)
        self.namespace.run("vtysh", "-f", file)

    def routes(self, vrf, family="-4"):
        self.reading.again()
        return {route["dst"]: route for route in self.devices[vrf].ip_json(family, "route", "show", "table", "main")}

    def expect_routes(self, vrf, *prefixes):
        """FRR's own work is waited for, so that it is not the old state that is compared."""
        eventually(lambda: all(prefix in self.routes(vrf, "-6" if ":" in prefix else "-4") for prefix in prefixes),
                   lambda: f"{vrf} has {sorted(self.routes(vrf))}\n{self.vtysh(f'show bgp vrf {vrf} summary')}", 30, 1)

    def setUp(self):
        super().setUp()
        for number, vrf in enumerate(VRFS):
            self.add_device(vrf, 1001 + number, f"a-{vrf}")
            self.namespace.ip_batch([f"addr add 10.0.0.1/24 dev a-{vrf}", f"addr add 2001:db8::1/64 dev a-{vrf} nodad"])
        for ends in (("c-red", "c-blue"), ("u-blue", "u-green")):
            self.namespace.ip_batch([f"link add {ends[0]} type veth peer name {ends[1]}",
                                     *(f"link set {end} master {end[2:]} up" for end in ends)])
        self.namespace.ip_batch(["addr add 10.100.0.1/24 dev c-red", "addr add 10.100.0.2/24 dev c-blue"])
        self.namespace.add_interface("d0", "10.0.1.1/24")

    def test_routes_of_frr(self):
        frr = self.start_frr()
        eventually(lambda: self.namespace.run("vtysh", "-c", "show version", check=False).returncode == 0, "FRR does not answer")
        self.configure()
        self.expect_routes("blue", "172.20.0.0/16", "2001:db8:20::/48")
        self.start_system()
        self.expect_routes("green", "172.20.0.0/16", "172.21.0.0/16", "2001:db8:21::/48")
        self.assertIn("nhid", self.routes("red")["172.20.0.0/16"])
        self.assertEqual(self.routes("green")["172.21.0.0/16"]["via"]["family"], "inet6")
        self.expect_everything(10)


if __name__ == "__main__":
    main(1200)
