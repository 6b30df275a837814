"""What the tables must be: made from `ip -j` and the kernel's files, in the form that tables.py describes."""

import collections
import ipaddress

from harness.tables import (ADDR, ADDRESS, BY_LENGTH, BY_TYPE, CONTEXT_TABLES, FIB_TABLES, FORWARDING, IF_INDEX_BITS,
                            INET_ROUTE, IP_IF_STATS, IP_TABLES, IPV4_FORWARDING, IPV4_INTERFACE, IPV6_FORWARDING,
                            IPV6_INTERFACE, MEDIA, PACKET_DEFAULTS, PHYSICAL, PREFIX, ROUTE, SUMMARY, TIME_TICKS, VRF,
                            VRF_IF)

SWITCHES = {IPV4_FORWARDING: "ipv4/ip_forward", IPV6_FORWARDING: "ipv6/conf/all/forwarding"}

STATIC, DYNAMIC, LOCAL = "4", "3", "5"  # types of neighbours
PREFERRED, INACCESSIBLE = "1", "4"
RESOLVED = {"PERMANENT", "REACHABLE", "STALE", "DELAY", "PROBE"}

UNUSABLE = {"dead", "linkdown"}
TO_NOWHERE = {"blackhole", "unreachable", "prohibit"}  # the kernel gives some of them the loopback interface
LOCAL_ROUTE, REMOTE_ROUTE, OTHER_ROUTE = "3", "4", "1"
# The kernel's name of a protocol -> ipCidrRouteProto; all others are 1, other.
PROTOCOLS = {"kernel": "2", "static": "3", "196": "3", "boot": "3", "rip": "8", "190": "8", "ripng": "8",
             "ospf": "13", "bgp": "14"}
INET_PROTOCOLS = {**PROTOCOLS, "isis": "9", "openfabric": "9"}  # IANAipRouteProtocol knows IS-IS, too
# What no route of ours has: tos, age, info, next hop AS, three metrics; and every row is active.
CONSTANTS = {3: "0", 8: "-1", 9: "0.0", 10: "0", 13: "-1", 14: "-1", 15: "-1", 16: "1"}

# Route types of the FIB statistics; FRR's package gives the protocols with a number their names.
OTHER, CONNECTED, STATIC_ROUTE, RIP, ISIS, OSPF, BGP, NOT_PERSISTENT, GROUP, ATTACHED = 1, 2, 3, 8, 9, 13, 14, 201, 202, 203
TYPES = {"kernel": CONNECTED, "boot": NOT_PERSISTENT, "static": STATIC_ROUTE, "rip": RIP, "isis": ISIS, "ospf": OSPF,
         "bgp": BGP, "190": RIP, "ripng": RIP, "196": STATIC_ROUTE}

# Where the columns of quorinSwFwdIpStatsTable come from, by the kernel's names without "Ip6"; "+" and "-" derive.
COLUMNS = {
    3: "InReceives", 5: "InOctets", 7: "InHdrErrors", 8: "InNoRoutes", 9: "InAddrErrors", 10: "InUnknownProtos",
    11: "InTruncatedPkts", 12: "OutForwDatagrams +InNoRoutes", 14: "ReasmReqds", 15: "ReasmOKs", 16: "ReasmFails",
    17: "InDiscards", 18: "InDelivers", 20: "OutRequests", 22: "OutNoRoutes", 23: "OutForwDatagrams", 25: "OutDiscards",
    26: "FragOKs +FragFails", 27: "FragOKs", 28: "FragFails", 29: "FragCreates",
    30: "OutForwDatagrams +OutRequests -FragFails -OutNoRoutes -OutDiscards -FragOKs +FragCreates", 32: "OutOctets",
    34: "InMcastPkts", 36: "InMcastOctets", 38: "OutMcastPkts", 40: "OutMcastOctets", 42: "InBcastPkts", 44: "OutBcastPkts"}
WIDE = {4: 3, 6: 5, 13: 12, 19: 18, 21: 20, 24: 23, 31: 30, **{column + 1: column for column in range(32, 46, 2)}}


def octets(address):
    packed = ipaddress.ip_address(address).packed
    return (len(packed), *packed)


def inet(address):
    """Type and address, as they stand in an index."""
    return (1 if ":" not in address else 2, *octets(address))


def owners_of(links, offset):
    """address -> (is configured only, interface, ifIndex, prefix length) of the interface that owns it: the lowest."""
    owners = {}
    for link in links:
        is_running = "UP" in link["flags"] and link["operstate"] in ("UP", "UNKNOWN")
        for info in link.get("addr_info", []):
            if "local" in info:
                is_usable = is_running and not info.get("tentative") and not info.get("dadfailed")
                holder = (not is_usable, link["ifname"], offset + link["ifindex"], info["prefixlen"])
                owner = owners.setdefault(info["local"], holder)
                if holder[:2] < owner[:2]:
                    owners[info["local"]] = holder
    return owners


def address_tables(links, offset):
    tables = {ADDR: {}, ADDRESS: {}, PREFIX: {}}
    for address, (is_configured_only, _, if_index, length) in owners_of(links, offset).items():
        network = ipaddress.ip_network(f"{address}/{length}", strict=False)
        prefix = (if_index, *inet(str(network.network_address)), length)
        if network.version == 4:
            tables[ADDR][octets(address)[1:]] = {1: address, 2: str(if_index), 3: str(network.netmask), 4: "0", 5: "65535"}
        tables[ADDRESS][inet(address)] = {
            3: str(if_index), 4: "1", 5: f"{PREFIX}.5." + ".".join(map(str, prefix)), 6: "1",
            7: INACCESSIBLE if is_configured_only else PREFERRED, 8: TIME_TICKS, 9: TIME_TICKS, 10: "1", 11: "1"}
        tables[PREFIX][prefix] = {5: "1", 6: "1", 7: "2", 8: "4294967295", 9: "4294967295"}
    return tables


def neighbours_of(namespace):
    """The neighbours with a hardware address."""
    return [entry for entry in namespace.ip_json("neigh", "show", "nud", "all")
            if len(entry.get("lladdr", "")) == 17 and RESOLVED & set(entry["state"])]


def ip_tables(namespace, vrf_id):
    offset = vrf_id << IF_INDEX_BITS
    links = namespace.ip_json("addr")
    if_indexes = {link["ifname"]: link["ifindex"] for link in links}
    tables = {**address_tables(links, offset), MEDIA: {}, PHYSICAL: {}}
    for entry in neighbours_of(namespace):
        address, if_index = entry["dst"], offset + if_indexes[entry["dev"]]
        hardware, kind = entry["lladdr"].replace(":", ""), STATIC if "PERMANENT" in entry["state"] else DYNAMIC
        is_ipv6 = ":" in address
        if not is_ipv6:
            tables[MEDIA][(if_index, *octets(address)[1:])] = {1: str(if_index), 2: hardware, 3: address, 4: kind}
        tables[PHYSICAL][(if_index, *inet(address))] = {
            4: hardware, 5: TIME_TICKS, 6: LOCAL if ipaddress.ip_address(address).is_link_local else kind,
            7: "1" if is_ipv6 else "6", 8: "1"}
    return tables


def best_routes(namespace, version):
    """prefix -> the route of the main table that the kernel uses: the one with the lowest metric. To a link-local prefix
    it uses those of all interfaces."""
    best = {}
    for route in namespace.ip_json(f"-{version}", "route", "show", "table", "main"):
        if route.get("type", "unicast") not in {"unicast", *TO_NOWHERE} or UNUSABLE & set(route.get("flags", [])):
            continue
        default = "0.0.0.0/0" if version == 4 else "::/0"
        network = ipaddress.ip_network(default if route["dst"] == "default" else route["dst"])
        if network in best and network.is_link_local and version == 6:
            both = (best[network], route)
            if not any(some.get("type") in TO_NOWHERE for some in both):
                best[network]["nexthops"] = [hop for some in both for hop in some.get("nexthops", [some])]
        elif network not in best or route.get("metric", 0) < best[network].get("metric", 0):
            best[network] = route
    return best


def next_hops_of(route):
    """{address: interface or None} of the next hops that packets go to; of equal addresses the last counts."""
    if route.get("type") in TO_NOWHERE:
        return {"0.0.0.0": None}
    return {hop.get("gateway", "0.0.0.0"): hop.get("dev") for hop in route.get("nexthops", [route])
            if not UNUSABLE & set(hop.get("flags", [])) and "via" not in hop}  # the table has no IPv6 next hops


def route_table(namespace, vrf_id):
    links = {link["ifname"]: link["ifindex"] for link in namespace.ip_json("link")}
    rows = {}
    for network, route in best_routes(namespace, 4).items():
        for address, interface in next_hops_of(route).items():
            destination, mask, metric = str(network.network_address), str(network.netmask), route.get("metric", 0)
            remote = REMOTE_ROUTE if interface else OTHER_ROUTE
            if_index = (vrf_id << IF_INDEX_BITS) + links[interface] if interface else 0
            row = {1: destination, 2: mask, 4: address, 5: str(if_index),
                   6: LOCAL_ROUTE if address == "0.0.0.0" else remote, 7: PROTOCOLS.get(route.get("protocol", "boot"), "1"),
                   11: str(metric - (metric >> 31 << 32)), **CONSTANTS}  # the metric as an INTEGER of 32 bits has it
            index = tuple(int(part) for text in (destination, mask, "0", address) for part in text.split("."))
            rows[index] = dict(sorted(row.items()))
    return {ROUTE: rows}


def inet_route_table(namespace, vrf_id):
    """inetCidrRouteTable: of both IP versions, with next hops of both."""
    links = {link["ifname"]: vrf_id << IF_INDEX_BITS | link["ifindex"] for link in namespace.ip_json("link")}
    rows = {}
    for network, route in (best_routes(namespace, 4) | best_routes(namespace, 6)).items():
        hops = {}  # next hop -> interfaces
        for hop in route.get("nexthops", [route]):
            if not UNUSABLE & set(hop.get("flags", [])):
                address = hop.get("gateway") or hop.get("via", {}).get("host")
                hops.setdefault(inet(address) if address else (0, 0), set()).add(links[hop["dev"]] if "dev" in hop else 0)
        kind = route.get("type", "unicast")
        if kind in TO_NOWHERE:
            hops = {(0, 0): {0}}
        metric, protocol = route.get("metric", 0), INET_PROTOCOLS.get(route.get("protocol", "boot"), "1")
        for hop, interfaces in hops.items():
            for if_index in interfaces:
                policy = (3, 0, 0, if_index) if len(interfaces) > 1 else (2, 0, 0)
                unicast = REMOTE_ROUTE if hop != (0, 0) else LOCAL_ROUTE
                rows[(*inet(str(network.network_address)), network.prefixlen, *policy, *hop)] = {
                    7: str(if_index), 8: {"unicast": unicast, "blackhole": "5"}.get(kind, "2"), 9: protocol, 10: "0", 11: "0",
                    12: str(metric - (metric >> 31 << 32)), **dict.fromkeys(range(13, 17), "-1"), 17: "1"}
    return {INET_ROUTE: rows}


def fib_tables(namespace, _vrf_id=0, configured=()):
    """Counts of prefixes; `configured` are those whose type the mirror's configuration gives, as (prefix, type)."""
    prefixes = {}
    for network, route in (best_routes(namespace, 4) | best_routes(namespace, 6)).items():
        protocol = route.get("protocol", "boot")
        is_group = "nhid" in route and protocol in ("static", "boot")
        prefixes[network] = GROUP if is_group else TYPES.get(protocol, OTHER)
    for entry in neighbours_of(namespace):
        address = ipaddress.ip_address(entry["dst"])
        if address.version == 4 or not address.is_link_local:
            prefixes.setdefault(ipaddress.ip_network(address), ATTACHED)
    tables = {entry: collections.Counter() for entry in FIB_TABLES}
    for network, kind in (prefixes | dict(configured)).items():
        family = 1 if network.version == 4 else 2
        tables[SUMMARY][family,] += 1
        tables[BY_TYPE][family, kind] += 1
        tables[BY_LENGTH][family, network.prefixlen] += 1
    return {entry: {index: {2: str(count)} for index, count in rows.items()} for entry, rows in tables.items()}


def switches_of(namespace):
    return {entry: namespace.run("cat", f"/proc/sys/net/{file}").stdout != "0\n" for entry, file in SWITCHES.items()}


def forwarding_scalars(namespace, _vrf_id):
    scalars = {entry: {(): {0: "1" if is_on else "2"}} for entry, is_on in switches_of(namespace).items()}
    return scalars if namespace.is_default else {**scalars, IPV6_FORWARDING: {}}


def kernel_tables(namespace, vrf_id=0, entries=CONTEXT_TABLES):
    """What these tables of a VRF's context must be. Number 0 is the default VRF."""
    tables = {}
    for made, make in ((FORWARDING, forwarding_scalars), (IP_TABLES, ip_tables), ((ROUTE,), route_table),
                       ((INET_ROUTE,), inet_route_table),
                       (FIB_TABLES, fib_tables)):
        if set(made) & set(entries):
            tables |= make(namespace, vrf_id)
    return {entry: tables[entry] for entry in entries}


def vrf_index(name):
    data = name.encode("utf-8", "surrogateescape")
    return (len(data), *data)


def vrf_tables(namespaces, vrf_id, distinguishers):
    """quorinVrfTable and quorinVrfIfTable with these VRFs (name -> namespace). `vrf_id` gives their numbers."""
    tables = {VRF: {}, VRF_IF: {}}
    for name, namespace in namespaces.items():
        ipv4, ipv6 = switches_of(namespace).values()
        flags, distinguisher = ipv4 << 7 | ipv6 << 6, distinguishers.get(name, "").encode().hex()
        tables[VRF][vrf_index(name)] = {2: f"{flags:02x}", 3: distinguisher, 4: "1"}
        for link in namespace.ip_json("addr"):
            if_index = vrf_id(name) << IF_INDEX_BITS | link["ifindex"]
            tables[VRF_IF][(if_index,)] = {1: bytes(vrf_index(name)[1:]).hex()}
    return tables


def named_values(namespace, file, block):
    """Names and values of a block of /proc/net/snmp or netstat, which has a line of each."""
    names, values = [line.split()[1:] for line in namespace.run("cat", f"/proc/net/{file}").stdout.splitlines()
                     if line.startswith(f"{block}: ")]
    return dict(zip(names, map(int, values)))


def counters6(namespace, file):
    pairs = (line.split() for line in namespace.run("cat", f"/proc/net/{file}").stdout.splitlines())
    return {name.removeprefix("Ip6"): int(value) for name, value in pairs if name.startswith("Ip6")}


def ip_counters(namespace, version):
    """The kernel's counters of an IP version (1 or 2, as in an index)."""
    if version == 2:
        return counters6(namespace, "snmp6")
    counters = named_values(namespace, "snmp", "Ip") | named_values(namespace, "netstat", "IpExt")
    return counters | {"OutForwDatagrams": counters["ForwDatagrams"]}


def counter_columns(counters):
    def value(sources):
        terms = ((-1 if name.startswith("-") else 1) * counters.get(name.lstrip("+-"), 0) for name in sources.split())
        return sum(terms) % 2**64

    row = {column: str(value(sources) % 2**32) for column, sources in COLUMNS.items()}
    return row | {column: str(value(COLUMNS[source])) for column, source in WIDE.items()}


def sw_fwd_row(namespace, version):
    """The row of quorinSwFwdIpStatsTable of an IP version."""
    counters = ip_counters(namespace, version)
    if version == 1:
        counters |= dict.fromkeys(("InOctets", "OutOctets", "InMcastOctets", "OutMcastOctets"), 0)  # which it does not read
    return {**counter_columns(counters), 46: TIME_TICKS, 47: "500"}


def system_stats_row(namespace, version):
    """The row of ipSystemStatsTable: also the octets of IPv4, no broadcasts of IPv6, and the kernel's OutTransmits."""
    counters = ip_counters(namespace, version)
    row = counter_columns(counters)
    if "OutTransmits" in counters:
        row |= {30: str(counters["OutTransmits"] % 2**32), 31: str(counters["OutTransmits"])}
    broadcasts = range(42, 46) if version == 2 else ()
    row = {column: value for column, value in row.items() if column not in broadcasts}
    return {**row, 46: TIME_TICKS, 47: "500"}


def interface_rows(namespace, vrf_id):
    """The rows of quorinIpIfStatsTable of a VRF's interfaces."""
    rows = {}
    for link in namespace.ip_json("link"):
        counters = counters6(namespace, f"dev_snmp6/{link['ifname']}")
        out = counters.get("OutTransmits", counters["OutRequests"] + counters["OutForwDatagrams"])
        all_of = {"In": (counters["InReceives"], counters["InOctets"]), "Out": (out, counters["OutOctets"])}
        mcast = {way: (counters[f"{way}McastPkts"], counters[f"{way}McastOctets"]) for way in all_of}
        ucast = {way: tuple(max(a - m, 0) for a, m in zip(all_of[way], mcast[way])) for way in all_of}
        values = [str(value) for kind in (all_of, ucast, mcast) for way in ("In", "Out") for value in kind[way]]
        rows[(2, vrf_id << IF_INDEX_BITS | link["ifindex"])] = {
            **dict(enumerate(values, 3)), 15: TIME_TICKS, 16: "2000"}
    return rows


def interface_tables(namespace, vrf_id=0):
    """The tables of IP_INTERFACE_TABLES: what runs on the interfaces of a VRF, as its sysctls and dev_snmp6 have it."""
    read = {}
    for line in namespace.run("sh", "-c", "cd /proc/sys/net && grep -s '' ipv4/ip_default_ttl ipv4/ipfrag_time "
                              "ipv6/conf/default/hop_limit ipv[46]/neigh/*/*_ms ipv6/conf/*/disable_ipv6 "
                              "ipv6/conf/*/forwarding").stdout.splitlines():
        name, _, read[name] = line.partition(":")
    defaults = (read["ipv4/ip_default_ttl"], read["ipv4/ipfrag_time"], read["ipv6/conf/default/hop_limit"])
    tables = {entry: {(): {0: value}} for entry, value in zip(PACKET_DEFAULTS, defaults)}
    tables |= {IPV4_INTERFACE: {}, IPV6_INTERFACE: {}, IP_IF_STATS: {}}
    for link in namespace.ip_json("addr"):
        name, if_index = link["ifname"], vrf_id << IF_INDEX_BITS | link["ifindex"]
        if f"ipv4/neigh/{name}/retrans_time_ms" in read:
            tables[IPV4_INTERFACE][(if_index,)] = {2: "65535", 3: "1", 4: read[f"ipv4/neigh/{name}/retrans_time_ms"]}
        if f"ipv6/conf/{name}/forwarding" not in read:
            continue
        local = [info["local"] for info in link["addr_info"] if info["family"] == "inet6" and info["scope"] == "link"]
        tables[IPV6_INTERFACE][(if_index,)] = {
            2: "65535", 3: ipaddress.ip_address(local[0]).packed[8:].hex() if local else "",
            5: "1" if read[f"ipv6/conf/{name}/disable_ipv6"] == "0" else "2",
            6: read[f"ipv6/neigh/{name}/base_reachable_time_ms"], 7: read[f"ipv6/neigh/{name}/retrans_time_ms"],
            8: "2" if read[f"ipv6/conf/{name}/forwarding"] == "0" else "1"}
        counters = counters6(namespace, f"dev_snmp6/{name}")
        row = counter_columns(counters)
        out = counters.get("OutTransmits", counters["OutRequests"] + counters["OutForwDatagrams"])
        row |= {30: str(out % 2**32), 31: str(out), 46: TIME_TICKS, 47: "2000"}
        not_counted = (12, 13, 22, *range(42, 46))
        tables[IP_IF_STATS][(2, if_index)] = {
            column: row[column] for column in sorted(row) if column not in not_counted}
    return tables


def default_routers(namespace, vrf_id=0):
    """ipDefaultRouterTable as {index: (lifetime, preference)}."""
    links = {link["ifname"]: link["ifindex"] for link in namespace.ip_json("link")}
    rows = {}
    for route in namespace.ip_json("-4", "route", "show", "default") + namespace.ip_json("-6", "route", "show", "default"):
        for hop in route.get("nexthops", [route]):
            if "gateway" in hop and not UNUSABLE & set(hop.get("flags", [])):
                is_advertised = route.get("protocol") == "ra"
                preference = {"high": "1", "low": "-1"}.get(route.get("pref"), "0") if is_advertised else "0"
                lifetime = route["expires"] if is_advertised else 65535
                rows[(*inet(hop["gateway"]), vrf_id << IF_INDEX_BITS | links[hop["dev"]])] = (lifetime, preference)
    return rows
