"""The files in contrib/, as docs/monitoring.md shows them: Debian's snmp_exporter and Prometheus ask the real agent."""

import json
import os
import re
import shutil
import unittest
import urllib.parse

from harness import SystemCase, eventually, main
from harness.kernel import ATTACHED, BGP, CONNECTED, STATIC_ROUTE, interface_rows, kernel_tables
from harness.tables import BY_LENGTH, BY_TYPE, IF_INDEX_BITS, INET_ROUTE, ROUTE
from harness.tools import read_file

CONTRIB = os.path.join(os.path.dirname(os.path.dirname(os.path.abspath(__file__))), "contrib")
AGENT = "127.0.0.1:1161"
MODULES = {None: "quorin_vrf", "red": "quorin_vrf_red", "blue": "quorin_vrf_blue"}
# What the examples in access.yml ask with.
ACCESS = ("com2sec -Cn red all default red-secret",
          "createUser alice SHA-256 'a long pass phrase' AES 'another pass phrase'")
FAMILIES = {1: "ipv4", 2: "ipv6"}
TYPES = {CONNECTED: "connected", STATIC_ROUTE: "static", BGP: "bgp", ATTACHED: "attached"}
# The modules for the tables of a VRF, as docs/monitoring.md adds them.
TABLE_MODULES = "".join(f"{module}_red:\n  <<: *{module}\n  auth: {{community: red-secret}}\n"
                        for module in ("quorin_interfaces", "quorin_routes"))
SAMPLE = re.compile(r"(\w+)(?:\{(.*)\})? (\S+)")


def contents(mark):
    return [f"link add a{mark} type veth peer name p{mark}", f"link set p{mark} up", f"link set a{mark} up",
            f"addr add 10.{mark}.0.1/16 dev a{mark}", f"addr add 2001:db8:{mark}::1/64 dev a{mark} nodad",
            f"neigh add 10.{mark}.0.9 lladdr 02:00:00:00:00:09 dev a{mark}",
            *(f"route add 10.99.{number}.0/24 proto bgp via 10.{mark}.0.9" for number in range(mark)),
            f"route add 10.98.0.0/16 proto static via 10.{mark}.0.9"]


def route_label(version, octets):
    """An address as the exporter writes it."""
    if version == 1:
        return ".".join(map(str, octets))
    return ":".join(f"{a:02X}{b:02X}" for a, b in zip(octets[::2], octets[1::2])) if version else "0x0000"


def route_labels(index, row):
    """Of a row of inetCidrRouteTable: destination, ifIndex, next hop, length and policy."""
    version, size, *index = index
    destination, (length, parts, *index) = index[:size], index[size:]
    policy, (hop_version, _, *hop) = index[:parts], index[parts:]
    return (route_label(version, destination), row[7], route_label(hop_version, hop), str(length),
            "0x" + "".join(f"{part % 256:02X}" for part in policy))


def installed(program):
    path = shutil.which(program, path=f"{os.environ['PATH']}:/usr/lib/nagios/plugins")
    if not path:
        raise unittest.SkipTest(f"there is no {program}; scripts/install-deps installs it")
    return path


class MonitoringTest(SystemCase):
    def setUp(self):
        super().setUp()
        exporter = installed("prometheus-snmp-exporter")
        self.namespace.ip(*contents(7))
        for mark, name in ((3, "red"), (5, "blue")):
            self.vrfs.add(name, *contents(mark))
        self.access = re.sub("createUser .*", "", self.access)
        self.configure(*ACCESS)
        self.start_system()
        modules = self.write_file("snmp.yml", TABLE_MODULES.join(
            read_file(os.path.join(CONTRIB, "snmp_exporter", name)) for name in ("quorin.yml", "access.yml")))
        self.start_service(exporter, f"--config.file={modules}", "--web.listen-address=127.0.0.1:9116")
        self.programs[-1].wait_for_output("Listening on")

    def start_service(self, path, *arguments):
        self.addCleanup(self.start(path, *arguments).kill)  # SIGTERM does not end it with status 0

    def fetch(self, place, **parameters):
        """The body of the answer, whose status is 200."""
        return self.namespace.run(
            "python3", "-c", "import sys, urllib.request as u; sys.stdout.buffer.write(u.urlopen(sys.argv[1]).read())",
            f"http://127.0.0.1:{place}?{urllib.parse.urlencode(parameters)}").stdout

    def scrape(self, module):
        """{metric: {values of its labels, in the order of their names: value}}"""
        metrics = {}
        for line in self.fetch("9116/snmp", module=module, target=AGENT).splitlines():
            if not line.startswith("#"):
                name, labels, value = SAMPLE.fullmatch(line).groups()
                key = tuple(re.findall(r'\w="([^"]*)"', labels or ""))
                self.assertNotIn(key, metrics.setdefault(name, {}), line)
                metrics[name][key] = float(value)
        return metrics

    def test_scrapes_have_the_state_of_each_context(self):
        def counts(name):
            metrics = self.scrape(MODULES[name])
            return (metrics["ipCidrRouteNumber"][()], metrics["quorinFIBStatsTotalRoutesForRouteType"],
                    metrics["quorinFIBStatsTotalRoutesForPrefixLen"])

        def expected_counts(name):
            namespace = self.vrfs.namespaces.get(name, self.namespace)
            tables = kernel_tables(namespace, self.vrf_id(name), (ROUTE, BY_TYPE, BY_LENGTH))
            by_type, by_length = ({index: float(row[2]) for index, row in tables[entry].items()}
                                  for entry in (BY_TYPE, BY_LENGTH))
            return (len(tables[ROUTE]), {(FAMILIES[family], TYPES[kind]): n for (family, kind), n in by_type.items()},
                    {(FAMILIES[family], str(length)): n for (family, length), n in by_length.items()})

        # A context that is not there yet does not answer, and the exporter's patience with that is 20 s.
        self.expect(lambda: {key for key, value in self.scrape("quorin")["quorinAgentVrfReadiness"].items() if value},
                    lambda: {(name or "default", "ready") for name in MODULES}, "VRFs")
        for name in MODULES:
            self.expect(lambda name=name: counts(name), lambda name=name: expected_counts(name), name)
        interfaces = {("ipv6", str(if_index), name or "") for name in MODULES for _, if_index in interface_rows(
            self.vrfs.namespaces.get(name, self.namespace), self.vrf_id(name))}
        self.expect(lambda: set(self.scrape("quorin")["quorinIpIfStatsInOctets"]), lambda: interfaces, "interfaces")
        for name, suffix in ((None, ""), ("red", "_red")):
            namespace, vrf_id = self.vrfs.namespaces.get(name, self.namespace), self.vrf_id(name)
            self.assertEqual(set(self.scrape(f"quorin_interfaces{suffix}")["ifHCInOctets"]), {
                (link.get("ifalias", ""), str(vrf_id << IF_INDEX_BITS | link["ifindex"]), link["ifname"])
                for link in namespace.ip_json("link")})
            self.expect(lambda: self.scrape(f"quorin_routes{suffix}")["inetCidrRouteMetric1"],
                        lambda: {route_labels(index, row): float(row[12]) for index, row in
                                 kernel_tables(namespace, vrf_id, (INET_ROUTE,))[INET_ROUTE].items()}, f"routes of {name}")
        self.namespace.run("ip", "link", "set", "a7", "alias", b"caf\xe9")  # not UTF-8, which fails a scrape
        eventually(lambda: r"caf\\xe9" in {labels[0] for labels in self.scrape("quorin_interfaces")["ifHCInOctets"]},
                   "the alias is not shown")
        metrics = self.scrape("quorin")
        states = {state: metrics["quorinAgentPublisherState"][state,]
                  for state in ("none", "alive", "silent", "gone", "starting")}
        self.assertEqual(states, {"none": 0, "alive": 1, "silent": 0, "gone": 0, "starting": 0})
        self.assertEqual(metrics["quorinAgentPublisherName"], {("quorin-mirrord",): 1})

    def query(self, expression):
        return json.loads(self.fetch("9090/api/v1/query", query=expression))["data"]["result"]

    def alerts(self):
        """Those that are pending, too."""
        return {result["metric"]["alertname"] for result in self.query("ALERTS")}

    def check_publisher(self):
        return self.namespace.run(
            installed("check_snmp"), "-H", "127.0.0.1", "-p", "1161", "-P", "2c", "-C", "public", "-o",
            "1.3.6.1.4.1.32473.4.1.1.0", "-c", "2:2", "-l", "publisher", check=False).returncode

    def test_alerts_dashboard_and_plugin(self):
        text = read_file(os.path.join(CONTRIB, "prometheus", "prometheus.yml"))
        config = self.write_file("prometheus.yml", text.replace("router.example.net", AGENT).replace(": 30s", ": 1s"))
        shutil.copy(os.path.join(CONTRIB, "prometheus", "quorin.rules.yml"), self.directory)
        self.start_service(installed("prometheus"), f"--config.file={config}", "--web.listen-address=127.0.0.1:9090",
                           f"--storage.tsdb.path={os.path.join(self.directory, 'prometheus')}")
        self.programs[-1].wait_for_output("Server is ready")
        dashboard = json.loads(read_file(os.path.join(CONTRIB, "grafana", "quorin.json")))
        for panel in dashboard["panels"]:
            for target in panel.get("targets", ()):
                expression = (target["expr"].replace("$instance", AGENT).replace("$vrf", "default|red|blue")
                              .replace("$__rate_interval", "1m"))
                eventually(lambda: self.query(expression), f"no data for {expression}", interval=0.2)
        rules = json.loads(self.fetch("9090/api/v1/rules"))["data"]["groups"][0]["rules"]
        for name in set(re.findall(r"quorin[A-Z]\w+", " ".join(rule["query"] for rule in rules))):
            self.assertTrue(self.query(name), f"a rule names {name}")
        self.assertEqual({rule["health"] for rule in rules}, {"ok"})
        self.assertNotIn("QuorinPublisherNotAlive", self.alerts())
        self.assertEqual(self.check_publisher(), 0)
        self.mirror.kill()
        eventually(lambda: "QuorinPublisherNotAlive" in self.alerts(), "no alert for a killed mirror", interval=0.2)
        self.assertEqual(self.check_publisher(), 2)
        self.agent.kill()
        eventually(lambda: "QuorinAgentDown" in self.alerts(), "no alert for a killed agent", interval=0.2)


if __name__ == "__main__":
    main()
