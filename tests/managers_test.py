"""Managers' own code asks two VRFs: net-snmp's tables and netstat, Nagios' plugin for interfaces, SNMP::Info. A stock
snmpd serves the same kernel, for the comparison in docs/served.md. monitoring_test.py has Prometheus' exporter."""

import ipaddress
import json
import os
import shutil
import unittest

from harness import SystemCase, eventually, main
from harness.kernel import best_routes, kernel_tables
from harness.snmp import Client
from harness.snmpd import SnmpdCase
from harness.tables import (ADDR, ADDRESS, DEFAULT_ROUTER, IF_INDEX_BITS, IF_TABLE, IFX_TABLE, INET_ROUTE, IP_IF_STATS,
                            MEDIA, PHYSICAL, PREFIX, ROUTE, SYSTEM_STATS, walk_table)
from harness.tools import run_command

MIBS = os.path.join(os.path.dirname(os.path.dirname(os.path.abspath(__file__))), "mibs", "standard")
PLUGIN = "/usr/lib/nagios/plugins/check_snmp_int.pl"
NAMES = {"red": 3, "blue": 5}  # with the number that their addresses have

# The columns in which snmpd differs, according to docs/served.md; and counters, which both must have.
DIFFERENT = {IF_TABLE: {3, 5, 15, 18, 21, 22}, IFX_TABLE: {3, 4, 5, 9, 12, 13, 14, 15, 16, 17, 18}, ADDR: {5},
             MEDIA: {}, PREFIX: {5}, ADDRESS: {6, 11}, PHYSICAL: {6, 7}, SYSTEM_STATS: {47},
             IP_IF_STATS: {12, 13, 47}, DEFAULT_ROUTER: {}, ROUTE: {7, 8}}
COUNTERS = {IF_TABLE: range(10, 21), IFX_TABLE: range(2, 14), SYSTEM_STATS: range(3, 46), IP_IF_STATS: range(3, 46)}

# What SNMP::Info needs of the standard MIB modules, of which Debian has none.
MODULES = {
    "SNMPv2-MIB": {"sysObjectID": "1 2", "sysServices": "1 7"},
    "IF-MIB": {"ifIndex": "2 2 1 1", "ifDescr": "2 2 1 2", "ifPhysAddress": "2 2 1 6", "ifName": "31 1 1 1 1",
               "ifHCInOctets": "31 1 1 1 6", "ifStackStatus": "31 1 2 1 3"},
    "IP-MIB": {"ipAdEntAddr": "4 20 1 1", "ipAdEntIfIndex": "4 20 1 2", "ipAdEntNetMask": "4 20 1 3"}}
INFO = r"""
use SNMP::Info; use JSON::PP;
my $info = SNMP::Info->new(DestHost => '127.0.0.1', RemotePort => 1161, Version => 2, Community => $ARGV[0],
                           MibDirs => [$ARGV[1]], IgnoreNetSNMPConf => 1, AutoSpecify => 0) or die;
print encode_json({map { $_ => $info->$_() } qw(interfaces i_name i_mac i_octet_in64 ip_index i_stack_status)});
"""


def mib_text(module, objects):
    return "\n".join((f"{module} DEFINITIONS ::= BEGIN IMPORTS OBJECT-TYPE, Integer32, mib-2 FROM SNMPv2-SMI;", *(
        f"{name} OBJECT-TYPE SYNTAX Integer32 MAX-ACCESS read-only STATUS current ::= {{ mib-2 {place} }}"
        for name, place in objects.items()), "END", ""))


def lines_of(mark):
    return [f"link add a{mark} type veth peer name p{mark}", f"link set p{mark} up", f"link set a{mark} up",
            f"link add br{mark} type bridge", f"link set p{mark} master br{mark}", f"link set br{mark} up",
            f"addr add 10.{mark}.0.1/16 dev a{mark}", f"addr add 2001:db8:{mark}::1/64 dev a{mark} nodad",
            f"addr add 192.0.2.{mark}/32 dev lo",
            f"route add 10.99.0.0/24 nexthop via 10.{mark}.0.8 nexthop via 10.{mark}.0.9",
            f"route add 2001:db8:99::/48 nexthop via fe80::1 dev a{mark} nexthop via fe80::1 dev br{mark}",
            "route add blackhole 10.98.0.0/16", f"route add ::/0 via 2001:db8:{mark}::9"]


def route_lines(namespace):
    """(destination, gateway, interface) of each next hop, as snmpnetstat writes them."""
    lines = set()
    for version, none in ((4, "0.0.0.0"), (6, "::")):
        for network, route in best_routes(namespace, version).items():
            for hop in route.get("nexthops", [route]):
                device = hop["dev"] if route.get("type", "unicast") == "unicast" else ""
                lines.add(("default" if network.prefixlen == 0 else str(network), hop.get("gateway", none), device))
    return lines


class ManagersTest(SystemCase):
    communities = tuple(NAMES)

    def setUp(self):
        super().setUp()
        self.configure("quorinContextCommunities @")
        for name, mark in NAMES.items():
            self.vrfs.add(name, *lines_of(mark))
        self.start_system()
        for name in NAMES:
            self.expect_context(name)

    def run_tool(self, *command):
        """The tool's output; it must not complain."""
        done = self.namespace.run(*command)
        self.assertEqual(done.stderr, "")
        return done.stdout

    def table(self, name, table):
        """snmptable's rows: [{column: value}], the index among them."""
        lines = self.run_tool("snmptable", "-M", MIBS, "-m", table.partition("::")[0], "-v2c", "-c", f"private@{name}",
                              "-Ci", "-Cf", "|", "127.0.0.1:1161", table).splitlines()[2:]
        return [dict(zip(lines[0].split("|"), line.split("|"))) for line in lines[1:] if "|" in line]

    def netstat(self, name, option):
        return [line.split() for line in self.run_tool(
            "snmpnetstat", "-v2c", "-c", f"private@{name}", option, "127.0.0.1:1161").splitlines()]

    def if_indexes(self, name):
        return {link["ifname"]: str(self.vrf_id(name) << IF_INDEX_BITS | link["ifindex"])
                for link in self.vrfs.namespaces[name].ip_json("link")}

    def test_net_snmps_tables_and_netstat(self):
        for name, mark in NAMES.items():
            namespace = self.vrfs.namespaces[name]
            self.assertEqual({row["ifName"]: row["index"] for row in self.table(name, "IF-MIB::ifXTable")},
                             self.if_indexes(name))
            routes = kernel_tables(namespace, self.vrf_id(name), (INET_ROUTE,))[INET_ROUTE]
            self.assertEqual(sorted((row["inetCidrRouteIfIndex"], row["inetCidrRouteMetric1"])
                                    for row in self.table(name, "IP-FORWARD-MIB::inetCidrRouteTable")),
                             sorted((row[7], row[12]) for row in routes.values()))
            interfaces = {row[0]: row for row in self.netstat(name, "-Ci")[1:]}
            self.assertEqual(set(interfaces), set(self.if_indexes(name)))
            self.assertIn(f"10.{mark}.0.1", interfaces[f"a{mark}"])
            served = {(row[0], row[1], row[3] if len(row) > 3 else "") for row in self.netstat(name, "-Crn")
                      if len(row) > 2 and row[2].startswith("<")}
            self.assertEqual(served, route_lines(namespace))

    @unittest.skipUnless(os.path.exists(PLUGIN), "Debian's nagios-snmp-plugins is not installed")
    def test_nagios_plugin_for_interfaces(self):
        def check(name):
            done = self.namespace.run("perl", PLUGIN, "-H", "127.0.0.1", "-p", "1161", "-2", "-C", f"private@{name}",
                                      "-n", ".*", "-f", check=False)
            return done.returncode, {part.split(":")[0].strip(): part.split(":")[1]
                                     for part in done.stdout.partition("|")[0].split(",")}

        for name, mark in NAMES.items():
            up = dict.fromkeys(self.if_indexes(name), "UP")
            self.expect(lambda: check(name), lambda: (0, up), f"interfaces of {name}")
            self.vrfs.namespaces[name].ip(f"link set br{mark} down")
            self.expect(lambda: check(name)[0], lambda: 2, f"an interface that is down in {name}")

    @unittest.skipUnless(run_command(["perl", "-MSNMP::Info", "-e", "1"], check=False).returncode == 0,
                         "Debian's libsnmp-info-perl is not installed")
    def test_snmp_info(self):
        for module, objects in MODULES.items():
            self.write_file(f"{module}.txt", mib_text(module, objects))
        shutil.copy(os.path.join(MIBS, "SNMPv2-SMI.txt"), self.directory)
        for name, mark in NAMES.items():
            found = json.loads(self.run_tool("env", "MIBS=", "perl", "-e", INFO, f"private@{name}", self.directory))
            if_indexes = self.if_indexes(name)
            self.assertEqual(set(found["interfaces"]), set(if_indexes.values()))
            self.assertEqual(found["i_name"], {index: interface for interface, index in if_indexes.items()})
            self.assertEqual(set(found["i_octet_in64"]), set(if_indexes.values()))
            addresses = {info["local"]: if_indexes[link["ifname"]]
                         for link in self.vrfs.namespaces[name].ip_json("addr") for info in link["addr_info"]
                         if ipaddress.ip_address(info["local"]).version == 4}
            self.assertEqual(found["ip_index"], addresses)
            self.assertIn(f"{if_indexes[f'br{mark}']}.{if_indexes[f'p{mark}']}", found["i_stack_status"])


class StockAgentTest(SnmpdCase):
    def test_rows_are_those_of_a_stock_snmpd_but_for_what_the_page_says(self):
        self.namespace.ip("link add br0 address 02:00:00:00:00:0b type bridge", "link set a0-p master br0",
                          "link set br0 up alias bridge", "addr add 10.9.0.1/16 dev a0",
                          "neigh add 2001:db8::7 lladdr 02:00:00:00:00:07 dev a0",
                          "route add default via 10.0.0.7", "route add blackhole 10.8.0.0/16")
        self.configure("quorinKernelIpHeader any")
        self.start_mirror()
        self.start_agent(listen="udp:127.0.0.1:1161")
        ours = Client(self.namespace, "udp:127.0.0.1:1161", self.client.access)
        eventually(lambda: any(link["ifname"] == "br0" and link["operstate"] == "UP" and len(link["addr_info"]) == 1
                               for link in self.namespace.ip_json("addr")), "br0 is down")
        self.expect_context(client=ours)
        self.configure_snmpd()
        self.start_snmpd()  # which keeps what it reads first for a minute
        self.wait_for_context(self.client)

        def rows(client, entry):
            left_out, counters = DIFFERENT[entry], COUNTERS.get(entry, ())
            return {index: {column: "" if column in counters else value for column, value in row.items()
                            if column not in left_out}
                    for index, row in walk_table(client, entry, may_be_torn=True).items()}

        for entry in DIFFERENT:
            with self.subTest(entry=entry):
                self.expect(lambda: {entry: rows(ours, entry)}, lambda: {entry: rows(self.client, entry)}, "rows")


if __name__ == "__main__":
    main()
