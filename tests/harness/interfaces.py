"""What the tables of IF-MIB must be: made from `ip -j -d -s -s link` and ethtool's request."""

from harness.tables import (DOT3, IF_INDEX_BITS, IF_NUMBER, IF_STACK, IF_TABLE, IFX_TABLE, INTERFACE_TABLES,
                            TIME_TICKS, walk_tables)
from harness.tools import run_command

OPER_STATUS = {"UP": 1, "DOWN": 2, "TESTING": 3, "DORMANT": 5, "NOTPRESENT": 6, "LOWERLAYERDOWN": 7}
TYPES = {"vlan": 135, "bond": 161, "bridge": 209, "vrf": 53}
HARDWARE_TYPES = {"ether": 6, "loopback": 24, "ppp": 23, "ipip": 131, "gre": 131, "sit": 131, "tunnel6": 131,
                  "gre6": 131, "none": 53}


def settings_of(namespace):
    """{interface: (Mbit/s, dot3StatsDuplexStatus)} as ETHTOOL_GSET gives them."""
    script = """
import array, fcntl, socket, struct
with socket.socket() as asking:
    for _, name in socket.if_nameindex():
        told = array.array("B", struct.pack("I40x", 1))
        try:
            fcntl.ioctl(asking, 0x8946, struct.pack("16sP16x", name.encode(), told.buffer_info()[0]))
            low, duplex, high = struct.unpack_from("12xHB13xH", told)
        except OSError:
            low, duplex, high = 0, 255, 0
        print(name, (high << 16 | low) % 0xffffffff, {0: 2, 1: 3}.get(duplex, 1))
"""
    lines = run_command(namespace.wrap(["python3", "-c", script])).stdout.splitlines()
    return {name: (int(speed), duplex) for name, speed, duplex in map(str.split, lines)}


def octets_of(link):
    """The hardware address; one of zeros is none, and that of an IP tunnel is an IP address."""
    digits = link.get("address", "").replace(":", "")
    return digits if digits.strip("0") and HARDWARE_TYPES.get(link["link_type"]) != 131 else ""


def rows_of(link, if_index, speed):
    """The interface's row of ifTable and of ifXTable."""
    received, sent = link["stats64"]["rx"], link["stats64"]["tx"]
    kind = TYPES.get(link.get("linkinfo", {}).get("info_kind"), HARDWARE_TYPES.get(link["link_type"], 1))
    is_enabled = "UP" in link["flags"]
    unicast = received["packets"] - received["multicast"]
    discards = received["dropped"] + received["missed_errors"]
    name, alias = link["ifname"].encode().hex(), link.get("ifalias", "").encode()[:64].hex()
    counters = {10: received["bytes"], 11: unicast, 12: received["multicast"], 13: discards, 14: received["errors"],
                16: sent["bytes"], 17: sent["packets"], 19: sent["dropped"], 20: sent["errors"]}
    row = {1: if_index, 2: name, 3: kind, 4: link["mtu"], 5: min(speed * 10**6, 2**32 - 1), 6: octets_of(link),
           7: 1 if is_enabled else 2, 8: OPER_STATUS.get(link["operstate"], 1 if is_enabled else 2), 9: TIME_TICKS,
           **{column: value % 2**32 for column, value in counters.items()}}
    extension = {1: name, 2: counters[12] % 2**32, 6: counters[10], 7: unicast, 8: counters[12], 10: counters[16],
                 11: counters[17], 14: 2, 15: speed, 16: 1 if link["promiscuity"] else 2,
                 17: 1 if "parentdev" in link else 2, 18: alias, 19: TIME_TICKS}
    return [{column: str(value) for column, value in values.items()} for values in (row, extension)]


def stack_rows(links, if_indexes):
    """ifStackTable, of pairs of interfaces by name."""
    pairs = {(link["ifname"], link["link"]) for link in links
             if link.get("link") in if_indexes and link["linkinfo"]["info_kind"] != "veth"}
    pairs |= {(link["master"], link["ifname"]) for link in links
              if link.get("master") in if_indexes and link["linkinfo"]["info_slave_kind"] != "vrf"}
    number = {None: 0, **if_indexes}
    pairs |= {(None, name) for name in if_indexes if name not in {lower for _, lower in pairs}}
    pairs |= {(name, None) for name in if_indexes if name not in {higher for higher, _ in pairs}}
    return {(number[higher], number[lower]): {3: "1"} for higher, lower in pairs}


def interface_tables(namespace, vrf_id=0, links=None):
    """The four tables and ifNumber in the context of a namespace, or with these of its interfaces."""
    links = links if links is not None else namespace.ip_json("-d", "-s", "-s", "link")
    settings = settings_of(namespace)
    if_indexes = {link["ifname"]: vrf_id << IF_INDEX_BITS | link["ifindex"] for link in links}
    tables = {IF_TABLE: {}, DOT3: {}, IFX_TABLE: {}, IF_STACK: stack_rows(links, if_indexes),
              IF_NUMBER: {(): {0: str(len(links))}}}
    for link in links:
        name = link["ifname"]
        index = (if_indexes[name],)
        tables[IF_TABLE][index], tables[IFX_TABLE][index] = rows_of(link, *index, settings[name][0])
        if tables[IF_TABLE][index][3] == "6":
            tables[DOT3][index] = {1: str(*index), 19: settings[name][1]}
    return tables


def still(tables):
    """Without the counters of lo in the default VRF, which the requests themselves go through."""
    for entry, counters in ((IF_TABLE, range(10, 21)), (IFX_TABLE, range(2, 14))):
        for column in counters:
            tables[entry].get((1,), {}).pop(column, None)
    return tables


def expect_interfaces(case, name=None):
    """The interface tables of a VRF's context are the kernel's, row for row."""
    namespace = case.vrfs.namespaces[name] if name else case.namespace
    case.expect(lambda: still(walk_tables(case.client_of(name), *INTERFACE_TABLES, IF_NUMBER)),
                lambda: still(interface_tables(namespace, case.vrf_id(name))), f"interfaces of {name}")
