"""The tables of the agent as values, and what the kernel says that they must be.

A table is {index: {column: value}}, with indexes as tuples of numbers and values as `read_tables` gives them: octets as
hexadecimal digits, OIDs without the leading dot, all else as the tool's text."""

import ipaddress
from dataclasses import dataclass

IP = "1.3.6.1.2.1.4"
ADDR, MEDIA, PREFIX, ADDRESS, PHYSICAL = (f"{IP}.{number}.1" for number in (20, 22, 32, 34, 35))
IP_TABLES = (ADDR, MEDIA, PREFIX, ADDRESS, PHYSICAL)
ENTERPRISE = "1.3.6.1.4.1.32473"
VRF, VRF_IF = f"{ENTERPRISE}.3.18.1.1.1", f"{ENTERPRISE}.3.18.1.2.1"
VRF_TABLES = (VRF, VRF_IF)

TIME_TICKS = "(time)"  # stands for any time since the start of the agent, which must not be in the future
STATIC, DYNAMIC, LOCAL = "4", "3", "5"
PREFERRED, INACCESSIBLE = "1", "4"
RESOLVED = {"PERMANENT", "REACHABLE", "STALE", "DELAY", "PROBE"}
IF_INDEX_BITS = 20  # of the kernel's index; the number of the VRF stands above


class TornWalk(Exception):
    """A row that came or went while the walk went from column to column."""


def numbers(oid):
    return tuple(map(int, oid.split(".")))


def text_value(bind):
    if bind.type == "Hex-STRING" or bind.type == "BITS":
        return bind.value.replace(" ", "").lower()
    if bind.type == "Timeticks":
        return TIME_TICKS
    return bind.value.lstrip(".") if bind.type == "OID" else bind.value


def read_tables(binds, entries, may_be_torn=False):
    """The walked rows of the tables with these entry OIDs. Order and uniqueness are checked on the way.

    Where rows may come and go during the walk, some may have a part of their columns only."""
    tables = {entry: {} for entry in entries}
    last = ()
    for bind in binds:
        if not bind.exists:
            continue
        oid = numbers(bind.oid)
        if oid <= last:
            raise AssertionError(f"{bind.oid} came after {'.'.join(map(str, last))}")
        last = oid
        for entry in entries:
            if bind.oid.startswith(entry + "."):
                column, *index = oid[len(numbers(entry)):]
                tables[entry].setdefault(tuple(index), {})[column] = text_value(bind)
    for entry, rows in tables.items():
        if not may_be_torn and len({tuple(row) for row in rows.values()}) > 1:
            raise TornWalk(entry)
    return tables


def octets(address):
    packed = ipaddress.ip_address(address).packed
    return (len(packed), *packed)


def inet(address):
    """Type and address, as they stand in an index."""
    return (ipaddress.ip_address(address).version // 4 if ":" not in address else 2, *octets(address))


@dataclass(frozen=True)
class Holder:
    """An interface that has an address; the lowest speaks for it."""

    is_configured_only: bool
    interface: str
    if_index: int
    length: int

    def prefix(self, address):
        network = ipaddress.ip_network(f"{address}/{self.length}", strict=False)
        return (self.if_index, *inet(str(network.network_address)), self.length)


def is_running(link):
    return "UP" in link["flags"] and link["operstate"] in ("UP", "UNKNOWN")


def holders_of(links, offset):
    """address -> the interfaces that have it, the one that speaks for it first."""
    holders = {}
    for link in links:
        for info in link.get("addr_info", []):
            if "local" not in info:
                continue
            in_force = is_running(link) and not info.get("tentative") and not info.get("dadfailed")
            holders.setdefault(info["local"], []).append(
                Holder(not in_force, link["ifname"], offset + link["ifindex"], info["prefixlen"]))
    return {address: sorted(found, key=lambda holder: (holder.is_configured_only, holder.interface))
            for address, found in holders.items()}


def address_tables(links, offset):
    tables = {ADDR: {}, ADDRESS: {}, PREFIX: {}}
    for address, (owner, *_) in holders_of(links, offset).items():
        prefix = owner.prefix(address)
        if ":" not in address:
            mask = ipaddress.ip_network(f"0.0.0.0/{owner.length}").netmask
            tables[ADDR][octets(address)[1:]] = {
                1: address, 2: str(owner.if_index), 3: str(mask), 4: "0", 5: "65535"}
        tables[ADDRESS][inet(address)] = {
            3: str(owner.if_index), 4: "1", 5: f"{PREFIX}.5." + ".".join(map(str, prefix)), 6: "1",
            7: INACCESSIBLE if owner.is_configured_only else PREFERRED, 8: TIME_TICKS, 9: TIME_TICKS, 10: "1", 11: "1"}
        tables[PREFIX][prefix] = {5: "1", 6: "1", 7: "2", 8: "4294967295", 9: "4294967295"}
    return tables


def kernel_rows(namespace):
    """ipAddrTable alone, as Client.ip_addr_rows gives it: address -> (kernel's ifIndex, mask)."""
    rows = address_tables(namespace.ip_json("-4", "addr"), 0)[ADDR]
    return {row[1]: (int(row[2]), row[3]) for row in rows.values()}


def neighbour_tables(neighbours, if_indexes, offset):
    tables = {MEDIA: {}, PHYSICAL: {}}
    for entry in neighbours:
        hardware = entry.get("lladdr", "").replace(":", "")
        if len(hardware) != 12 or not RESOLVED & set(entry["state"]):
            continue
        address, if_index = entry["dst"], offset + if_indexes[entry["dev"]]
        kind = STATIC if "PERMANENT" in entry["state"] else DYNAMIC
        is_ipv6 = ":" in address
        if not is_ipv6:
            tables[MEDIA][(if_index, *octets(address)[1:])] = {1: str(if_index), 2: hardware, 3: address, 4: kind}
        tables[PHYSICAL][(if_index, *inet(address))] = {
            4: hardware, 5: TIME_TICKS, 6: LOCAL if ipaddress.ip_address(address).is_link_local else kind,
            7: "1" if is_ipv6 else "6", 8: "1"}
    return tables


def kernel_tables(namespace, vrf_id=0):
    """What the tables of a VRF's context must be, from `ip -j`. Number 0 is the default VRF."""
    offset = vrf_id << IF_INDEX_BITS
    links = namespace.ip_json("addr")
    if_indexes = {link["ifname"]: link["ifindex"] for link in links}
    neighbours = namespace.ip_json("neigh", "show", "nud", "all")
    return {**address_tables(links, offset), **neighbour_tables(neighbours, if_indexes, offset)}


def vrf_index(name):
    data = name if isinstance(name, bytes) else name.encode("utf-8", "surrogateescape")
    return (len(data), *data)


def vrf_tables(namespaces, vrf_id):
    """What quorinVrfTable and quorinVrfIfTable must be with these VRFs (name -> namespace), whose numbers `vrf_id` gives."""
    tables = {VRF: {}, VRF_IF: {}}
    for name, namespace in namespaces.items():
        forwarding = [namespace.run("cat", f"/proc/sys/net/{file}").stdout.strip() != "0"
                      for file in ("ipv4/ip_forward", "ipv6/conf/all/forwarding")]
        tables[VRF][vrf_index(name)] = {2: f"{forwarding[0] << 7 | forwarding[1] << 6:02x}", 3: "", 4: "1"}
        for link in namespace.ip_json("addr"):
            if_index = vrf_id(name) << IF_INDEX_BITS | link["ifindex"]
            tables[VRF_IF][(if_index,)] = {1: bytes(vrf_index(name)[1:]).hex()}
    return tables
