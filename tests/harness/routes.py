"""ipCidrRouteTable as values, and what the kernel says that it must be."""

import ipaddress

from harness.tables import IF_INDEX_BITS, IP

ROUTE = f"{IP}.24.4.1"
LOCAL, REMOTE, OTHER = "3", "4", "1"  # ipCidrRouteType
# The kernel's name of a protocol -> ipCidrRouteProto; all others are 1, other.
PROTOCOLS = {"kernel": "2", "static": "3", "196": "3", "boot": "3", "rip": "8", "ospf": "13", "bgp": "14"}
# What no route of ours has: tos, age, info, next hop AS, three metrics; and every row is active.
CONSTANTS = {3: "0", 8: "-1", 9: "0.0", 10: "0", 13: "-1", 14: "-1", 15: "-1", 16: "1"}
UNUSABLE = {"dead", "linkdown"}
TO_NOWHERE = {"blackhole", "unreachable", "prohibit"}  # the kernel gives some of them the loopback interface


def signed(value):
    """As an INTEGER has it: 32 bits, with a sign."""
    return str(value - (value >> 31 << 32))


def network_of(destination):
    return ipaddress.ip_network("0.0.0.0/0" if destination == "default" else destination)


def next_hops_of(route):
    """(address, interface or None) of each next hop that packets go to; of equal addresses the last counts."""
    if route.get("type") in TO_NOWHERE:
        return {"0.0.0.0": None}
    hops = {}
    for hop in route.get("nexthops", [route]):
        if UNUSABLE & set(hop.get("flags", [])) or "via" in hop:  # an IPv6 next hop has no place in this table
            continue
        hops[hop.get("gateway", "0.0.0.0")] = hop.get("dev")
    return hops


def best_routes(namespace):
    """The routes of the main table that the kernel uses: of one prefix, that with the lowest metric."""
    best = {}
    for route in namespace.ip_json("-4", "route", "show", "table", "main"):
        if route.get("type", "unicast") not in {"unicast", *TO_NOWHERE} or UNUSABLE & set(route.get("flags", [])):
            continue
        network = network_of(route["dst"])
        if network not in best or route.get("metric", 0) < best[network].get("metric", 0):
            best[network] = route
    return best


def kernel_route_table(namespace, vrf_id=0):
    """ipCidrRouteTable as {index: {column: value}}, without the preference (column 12), which the kernel has not."""
    links = {link["ifname"]: link["ifindex"] for link in namespace.ip_json("link")}
    rows = {}
    for network, route in best_routes(namespace).items():
        for address, interface in next_hops_of(route).items():
            destination, mask = str(network.network_address), str(network.netmask)
            remote = REMOTE if interface else OTHER
            row = {1: destination, 2: mask, 4: address, 5: str((vrf_id << IF_INDEX_BITS) + links[interface]) if interface else "0",
                   6: LOCAL if address == "0.0.0.0" else remote, 7: PROTOCOLS.get(route.get("protocol", "boot"), "1"),
                   11: signed(route.get("metric", 0)), **CONSTANTS}
            index = tuple(int(part) for text in (destination, mask, "0", address) for part in text.split("."))
            rows[index] = dict(sorted(row.items()))
    return {ROUTE: rows}


def without_preference(tables):
    return {ROUTE: {index: {column: value for column, value in row.items() if column != 12}
                    for index, row in tables[ROUTE].items()}}
