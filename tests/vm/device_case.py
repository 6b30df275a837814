"""The frame of a test with VRF devices: every table in every context, row for row as `ip -j -d` says it must be."""

import functools

from harness import SystemCase, eventually
from harness.kernel import COLUMNS, WIDE, interface_rows, kernel_tables, sw_fwd_row, vrf_tables
from harness.tables import CONTEXT_TABLES, IF_STATS, SW_FWD, TIME_TICKS, VRF_TABLES, walk_tables

SYSTEM_TABLES = (*VRF_TABLES, IF_STATS)  # of the default context alone
NO_COUNTERS = {**dict.fromkeys({*COLUMNS, *WIDE}, "0"), 46: TIME_TICKS, 47: "500"}  # a device has none


class DeviceVrf:
    """What a namespace has in one of its VRF devices, or in none of them (no name), to be asked like a namespace.
    `ask` calls a function of the namespace, or returns what it returned before."""

    def __init__(self, namespace, ask, device=None):
        self.namespace, self.ask, self.device = namespace, ask, device
        self.is_default = device is None

    def run(self, *command):
        return self.ask(self.namespace.run, *command)

    def read(self, *arguments):
        return self.ask(self.namespace.ip_json, "-d", *arguments)

    def ip_json(self, *arguments):
        links = {link["ifname"]: link for link in self.read("addr")}
        tables = {name: str(link["linkinfo"]["info_data"]["table"]) for name, link in links.items()
                  if link.get("linkinfo", {}).get("info_kind") == "vrf"}
        if "route" in arguments:  # the callers ask for a namespace's table main
            table = tables.get(self.device) if self.device else "main"
            routes = self.read(arguments[0], "route", "show", "table", "all")
            return [route for route in routes if route.get("table", "main") == table]
        if "link" in arguments:  # all of them, since a route may lead through another VRF
            return list(links.values())

        def device_of(name):
            owner = name if name in tables else links[name].get("master")
            return owner if owner in tables else None

        return [entry for entry in self.read(*arguments)
                if device_of(entry.get("ifname") or entry["dev"]) == self.device]


class DeviceCase(SystemCase):
    def setUp(self):
        super().setUp()
        # Counters can be compared once they stand still.
        self.namespace.sysctl("net.ipv6.conf.default.router_solicitations", 0)
        self.ask = functools.cache(lambda function, *arguments: function(*arguments))
        self.default_vrf = self.device_vrf()
        self.devices = {}

    def device_vrf(self, name=None):
        return DeviceVrf(self.namespace, self.ask, name)

    def add_device(self, name, table, *members):
        """A VRF device that is up, and interfaces of it that are made (veth, their other ends in the default VRF)."""
        self.namespace.ip(f"link add {name} type vrf table {table}", f"link set {name} up")
        for member in members:
            self.namespace.add_interface(member)
            self.namespace.ip(f"link set {member} master {name}")
        self.devices[name] = self.device_vrf(name)
        return self.devices[name]

    def start_agent(self, *arguments, **options):
        return super().start_agent("--netns-dir", self.vrfs.path, *arguments, **options)

    def remove_device(self, name):
        self.namespace.ip(f"link del {name}")
        del self.devices[name]

    def vrfs_of_all(self):
        """name -> what is asked for its rows; a namespace comes before a device of its name."""
        return self.devices | self.vrfs.namespaces

    def number(self, name):
        return self.vrf_id(name) if name in self.vrfs.namespaces else 0

    def served(self, client, entries):
        tables = walk_tables(client, *entries)
        del tables[SW_FWD][1,]  # IPv4 counts the requests themselves
        return tables

    def expected(self, vrf, name=None):
        """The tables that every context has."""
        counters = NO_COUNTERS if vrf is self.devices.get(name) else sw_fwd_row(vrf, 2)
        return {**kernel_tables(vrf, self.number(name)), SW_FWD: {(2,): counters}}

    def expected_of_system(self):
        stats = interface_rows(self.default_vrf, 0)
        for name, namespace in self.vrfs.namespaces.items():
            stats |= interface_rows(namespace, self.number(name))
        return {**self.expected(self.default_vrf), **vrf_tables(self.vrfs_of_all(), self.number, {}), IF_STATS: stats}

    def expect_everything(self):
        """All tables of all contexts. A reading that does not fit is repeated."""
        self.ask.cache_clear()
        for name in (None, *self.vrfs_of_all()):
            entries = (*CONTEXT_TABLES, SW_FWD, *(() if name else SYSTEM_TABLES))
            repeat = iter([lambda: None])  # nothing before the first attempt

            def expected():
                next(repeat, self.ask.cache_clear)()
                return self.expected(self.vrfs_of_all()[name], name) if name else self.expected_of_system()

            self.expect(lambda: self.served(self.client_of(name), entries), expected, f"context {name}")

    def expect_no_context(self, name):
        gone = self.client_of(name).impatient()
        eventually(lambda: not gone.answers(), f"{name} still answers")
