"""FRR's zebra, staticd and bgpd in VRF devices: what they put into the VRFs' tables through next-hop objects."""

from device_case import DeviceCase
from harness import eventually, main

VRFS = {"red": 65001, "blue": 65002, "green": 65003}
# red and blue peer by their addresses, over c-red and c-blue; blue and green over an unnumbered link, u-blue and
# u-green, so that IPv4 routes have IPv6 next hops there; green imports red's routes.
PEERS = {"red": ["10.100.0.2"], "blue": ["10.100.0.1", "u-blue interface"], "green": ["u-green interface"]}
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
"""
PEER = " neighbor {0} remote-as external\n neighbor {1} timers connect 3\n"
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
        """What FRR says to these lines of configuration or questions."""
        words = [word for line in lines for word in ("-c", line)]
        done = self.namespace.run("vtysh", "--config_dir", self.directory, *words, check=False)
        return done.stdout if done.returncode == 0 else ""

    def start_frr(self):
        """The programs by name, running and configured."""
        started = {name: self.start(f"/usr/lib/frr/{name}", "-f", "/dev/null", "--log", "stdout")
                   for name in ("zebra", "staticd", "bgpd")}
        eventually(lambda: all(name in self.vtysh("show daemons") for name in started), "FRR does not answer",
                   interval=1)
        text = ""
        for n, (vrf, asn) in enumerate(VRFS.items()):
            activate = "".join(f"neighbor {peer.split()[0]} activate\n  " for peer in PEERS[vrf])
            text += STATIC.format(vrf=vrf, asn=asn, n=n)
            text += "".join(PEER.format(peer, peer.split()[0]) for peer in PEERS[vrf])
            text += FAMILIES.format(imports="import vrf red" if vrf == "green" else "", activate=activate)
        self.vtysh("configure", *text.splitlines())
        return started

    def routes(self, vrf):
        self.ask.cache_clear()
        return {route["dst"]: route for family in ("-4", "-6")
                for route in self.devices[vrf].ip_json(family, "route", "show", "table", "main")}

    def expect_route(self, vrf, prefix, condition):
        """FRR's own work is waited for: a route, or none, of which the condition holds. Then all that is served."""
        eventually(lambda: condition(self.routes(vrf).get(prefix)), lambda: f"{prefix} of {vrf} is "
                   f"{self.routes(vrf).get(prefix)}\n{self.vtysh(f'show bgp vrf {vrf} summary')}", interval=1)
        self.expect_everything()

    def setUp(self):
        super().setUp()
        self.write_file("vtysh.conf", "username root nopassword\n")
        for number, vrf in enumerate(VRFS):
            self.add_device(vrf, 1001 + number, f"a-{vrf}")
            self.namespace.ip(f"addr add 10.0.0.1/24 dev a-{vrf}", f"addr add 2001:db8::1/64 dev a-{vrf} nodad")
        for ends in (("c-red", "c-blue"), ("u-blue", "u-green")):
            self.namespace.ip(f"link add {ends[0]} type veth peer name {ends[1]}",
                              *(f"link set {end} master {end[2:]} up" for end in ends))
        self.namespace.ip("addr add 10.100.0.1/24 dev c-red", "addr add 10.100.0.2/24 dev c-blue")
        self.namespace.add_interface("d0", "10.0.1.1/24")

    def test_routes_of_zebra_staticd_and_bgpd(self):
        frr = self.start_frr()
        self.start_system()
        self.expect_route("blue", "172.20.0.0/16", lambda route: route and {"nhid", "protocol"} <= set(route))
        # One next hop is imported from red, the other one an IPv6 address.
        self.expect_route("green", "172.21.0.0/16", lambda route: "inet6" in str(route) and "10.100.0.2" in str(route))
        self.expect_route("green", "2001:db8:21::/48", lambda route: route and "nhid" in route)
        with self.subTest("static routes change"):
            self.vtysh("configure", "vrf red", "no ip route 172.20.1.0/24 10.0.0.10",
                       "ip route 172.20.9.0/24 10.0.0.11")
            self.expect_route("red", "172.20.9.0/24", lambda route: route and route["protocol"] == "196")
            self.expect_route("blue", "172.20.9.0/24", lambda route: route)
        with self.subTest("a link is down, and up again"):
            self.namespace.ip("link set c-red down")
            self.expect_route("red", "172.21.0.0/16", lambda route: not route)
            self.namespace.ip("link set c-red up")
            self.expect_route("red", "172.21.0.0/16", lambda route: route)
        with self.subTest("FRR is killed, which leaves its routes behind, and started again"):
            for program in frr.values():
                program.kill()
            self.namespace.ip("link set a-red down")  # takes routes away that zebra knows nothing of now
            self.expect_everything()
            self.namespace.ip("link set a-red up")
            frr = self.start_frr()
            self.expect_route("green", "172.21.0.0/16", lambda route: "inet6" in str(route))
        with self.subTest("bgpd ends"):
            self.assertEqual(frr["bgpd"].stop(), 0)
            self.expect_route("green", "172.21.0.0/16", lambda route: not route)


if __name__ == "__main__":
    main(1200)
