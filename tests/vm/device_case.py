"""The frame of a test with VRF devices: every table in every context, row for row as `ip -j -d` says it must be."""

from counters_test import COLUMNS, IF_STATS, SW_FWD, WIDE, interface_rows, kernel_row
from fib_stats_test import ENTRIES as FIB_TABLES
from fib_stats_test import expected_tables as fib_tables
from harness import eventually
from harness.routes import ROUTE, kernel_route_table, without_preference
from harness.snmp import IP_FORWARDING, IPV6_IP_FORWARDING
from harness.tables import ENTERPRISE, IP, IP_TABLES, VRF_TABLES, kernel_tables, read_tables, vrf_tables
from harness.vrf import DeviceVrf, KernelReading
from harness.vrfcase import VrfCase

SYSTEM_TABLES = (*VRF_TABLES, IF_STATS)  # of the default context alone
# The scalars and their switches; that of IPv6 is in the default context alone.
SWITCHES = {IP_FORWARDING: "ipv4/ip_forward", IPV6_IP_FORWARDING: "ipv6/conf/all/forwarding"}
NO_COUNTERS = {**dict.fromkeys(sorted({*COLUMNS, *WIDE}), "0"), 46: "(time)", 47: "500"}  # a device has none


class DeviceCase(VrfCase):
    def setUp(self):
        super().setUp()
        # Counters can be compared once they stand still.
        self.namespace.sysctl("net.ipv6.conf.default.router_solicitations", 0)
        self.reading = KernelReading(self.namespace)
        self.default_vrf = DeviceVrf(self.reading)
        self.devices = {}

    def add_device(self, name, table, *members):
        """A VRF device that is up, and interfaces of it that are made (veth, their other ends in the default VRF)."""
        self.namespace.ip_batch([f"link add {name} type vrf table {table}", f"link set {name} up"])
        for member in members:
            self.namespace.add_interface(member)
        self.namespace.ip_batch([f"link set {member} master {name}" for member in members])
        self.devices[name] = DeviceVrf(self.reading, name)
        return self.devices[name]

    def start_agent(self, *arguments, **options):
        return super().start_agent("--netns-dir", self.vrfs.path, *arguments, **options)

    def remove_device(self, name):
        self.namespace.ip("link", "del", name)
        del self.devices[name]

    def vrfs_of_all(self):
        """name -> what is asked for its rows; a namespace comes before a device of its name."""
        return self.devices | self.vrfs.namespaces

    def number(self, name):
        return self.vrf_id(name) if name in self.vrfs.namespaces else 0

    def served(self, client, entries):
        binds = client.bulk_walk(IP) + client.bulk_walk(ENTERPRISE)
        tables = read_tables(binds, entries)
        if SW_FWD in entries:
            del tables[SW_FWD][1,]  # IPv4 counts the requests themselves
        scalars = {bind.oid: bind.value for bind in binds if bind.oid in SWITCHES}
        return {**tables, **without_preference(tables), "scalars": scalars}

    def expected(self, vrf, name=None):
        """The tables that every context has."""
        number = self.number(name) if name else 0
        scalars = {oid: "2" if vrf.run("cat", f"/proc/sys/net/{file}").stdout == "0\n" else "1"
                   for oid, file in SWITCHES.items() if oid == IP_FORWARDING or not name}
        return {**kernel_tables(vrf, number), **kernel_route_table(vrf, number), **fib_tables(vrf), "scalars": scalars,
                SW_FWD: {(2,): NO_COUNTERS if vrf is self.devices.get(name) else kernel_row(vrf, 2)}}

    def expected_of_system(self):
        vrfs = self.vrfs_of_all()
        stats = interface_rows(self.default_vrf, 0)
        for name, namespace in self.vrfs.namespaces.items():
            stats |= interface_rows(namespace, self.number(name))
        return {**self.expected(self.default_vrf), **vrf_tables(vrfs, self.number), IF_STATS: stats}

    def expect_everything(self, names=None):
        """All tables of all contexts, or of these; None is the default one. A reading that does not fit is repeated."""
        self.reading.again()
        for name in names or (None, *self.vrfs_of_all()):
            client = self.community(f"c-{name}") if name else self.default
            entries = (*IP_TABLES, ROUTE, *FIB_TABLES, SW_FWD, *(() if name else SYSTEM_TABLES))
            repeat = iter([lambda: None])  # nothing before the first attempt

            def expected():
                next(repeat, self.reading.again)()
                return self.expected(self.vrfs_of_all()[name], name) if name else self.expected_of_system()

            self.expect(lambda: self.served(client, entries), expected, f"context {name}")

    def expect_no_rows(self, name):
        client = self.community(f"c-{name}")
        eventually(lambda: not any(bind.exists for bind in client.bulk_walk(IP)), f"{name} still answers")
