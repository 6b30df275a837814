"""The tables as the agent serves them.

A table is {index: {column: value}}, with indexes as tuples of numbers and values as `text_value` gives them: octets as
hexadecimal digits, OIDs without the leading dot, all else as the tool's text. See kernel.py for what they must be."""

import os

IP, ENTERPRISE = "1.3.6.1.2.1.4", "1.3.6.1.4.1.32473"
ADDR, MEDIA, PREFIX, ADDRESS, PHYSICAL = IP_TABLES = tuple(f"{IP}.{number}.1" for number in (20, 22, 32, 34, 35))
ROUTE, INET_ROUTE = f"{IP}.24.4.1", f"{IP}.24.7.1"
SUMMARY, BY_TYPE, BY_LENGTH = FIB_TABLES = tuple(f"{ENTERPRISE}.3.23.1.{number}.1" for number in (1, 2, 3))
FORWARDING = IPV4_FORWARDING, IPV6_FORWARDING = f"{IP}.1", f"{IP}.25"  # scalars, as tables with column 0 alone
CONTEXT_TABLES = (*FORWARDING, *IP_TABLES, ROUTE, INET_ROUTE, *FIB_TABLES)  # what every context has, counters aside
IF_TABLE, DOT3, IFX_TABLE, IF_STACK = INTERFACE_TABLES = tuple(
    f"1.3.6.1.2.1.{number}.1" for number in ("2.2", "10.7.2", "31.1.1", "31.1.2"))
IF_SCALARS = IF_NUMBER, IF_TABLE_CHANGE, IF_STACK_CHANGE = "1.3.6.1.2.1.2.1", "1.3.6.1.2.1.31.1.5", "1.3.6.1.2.1.31.1.6"
VRF, VRF_IF = VRF_TABLES = tuple(f"{ENTERPRISE}.3.18.1.{number}.1" for number in (1, 2))
SW_FWD, IF_STATS = f"{ENTERPRISE}.3.1.1.1.1", f"{ENTERPRISE}.3.27.1.1.1"

SYSTEM_STATS, IP_IF_STATS, IPV4_INTERFACE, IPV6_INTERFACE = (f"{IP}.{table}.1" for table in ("31.1", "31.3", 28, 30))
DEFAULT_ROUTER = f"{IP}.37.1"
PACKET_DEFAULTS = tuple(f"{IP}.{number}" for number in (2, 13, 26))  # scalars, as tables with column 0 alone
IP_INTERFACE_TABLES = (*PACKET_DEFAULTS, IPV4_INTERFACE, IPV6_INTERFACE, IP_IF_STATS)

TIME_TICKS = "(time)"  # stands for any time since the start of the agent, which must not be in the future
IF_INDEX_BITS = 20  # of the kernel's index; the number of the VRF stands above
PREFERENCE = (ROUTE, 12)  # which the kernel does not know


class TornWalk(Exception):
    """A row that came or went while the walk went from column to column."""


def numbers(oid):
    return tuple(map(int, oid.split(".")))


def text_value(bind):
    if bind.type in ("Hex-STRING", "BITS"):
        return bind.value.replace(" ", "").lower()
    if bind.type == "Timeticks":
        return TIME_TICKS
    return bind.value.lstrip(".") if bind.type == "OID" else bind.value


def walk_tables(client, *entries, may_be_torn=False, tool="snmpbulkwalk"):
    """The tables with these entry OIDs, as a walk of all that has them shows them. A torn row lacks some columns."""
    tables = {entry: {} for entry in entries}
    last = ()
    for group in ("1.3.6.1.2.1.2.", IP, "1.3.6.1.2.1.10.", "1.3.6.1.2.1.31.", ENTERPRISE):
        inside = [numbers(entry) for entry in entries if entry.startswith(group)]
        for bind in client.walk(".".join(map(str, os.path.commonprefix(inside))), tool) if inside else ():
            oid = numbers(bind.oid)
            if oid <= last:
                raise AssertionError(f"{bind.oid} came after {last}")
            last = oid
            for entry in entries:
                if bind.oid.startswith(entry + "."):
                    column, *index = oid[len(numbers(entry)):]
                    if (entry, column) != PREFERENCE:
                        tables[entry].setdefault(tuple(index), {})[column] = text_value(bind)
    for entry, rows in tables.items():
        if not may_be_torn and len({tuple(row) for row in rows.values()}) > 1:
            raise TornWalk(entry)
    return tables


def walk_table(client, entry, **options):
    return walk_tables(client, entry, **options)[entry]


def difference(served, expected):
    """The rows that differ, for people."""
    if not isinstance(served, dict) or not isinstance(expected, dict):
        return f"served {served!r}, expected {expected!r}"
    lines = [f"{table} row {index}: served {served.get(table, {}).get(index)}, expected {rows.get(index)}"
             for table, rows in expected.items() for index in sorted({*rows, *served.get(table, {})})
             if rows.get(index) != served.get(table, {}).get(index)]
    return f"{len(lines)} rows differ:\n" + "\n".join(lines[:5])
