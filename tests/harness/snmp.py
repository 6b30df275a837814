"""net-snmp's command-line tools as the client."""

import re
from dataclasses import dataclass

from harness.namespace import run_command

IP_FORWARDING = "1.3.6.1.2.1.4.1.0"
IPV6_IP_FORWARDING = "1.3.6.1.2.1.4.25.0"
IP_ADDR_TABLE = "1.3.6.1.2.1.4.20"
IP_ADDR_ENTRY = IP_ADDR_TABLE + ".1"
SYS_UP_TIME = "1.3.6.1.2.1.1.3.0"

ROW = re.compile(r"^\.(?P<oid>[\d.]+) = (?:(?P<type>[A-Za-z][A-Za-z0-9-]*): ?)?(?P<value>.*)$")
REASON = re.compile(r"^Reason: \(?(\w+)", re.MULTILINE)


class SnmpError(Exception):
    """The agent refused or kept silent. `reason` is the error-status by name, "timeout", or the tool's words."""

    def __init__(self, reason):
        super().__init__(reason)
        self.reason = reason


@dataclass(frozen=True)
class VarBind:
    oid: str
    type: str  # "INTEGER", "IpAddress", ...; "" for the exceptions ("No Such Instance ...")
    value: str

    @property
    def exists(self):
        return self.type != ""


class Client:
    def __init__(self, namespace, agent="udp:127.0.0.1:1161", access=("-v2c", "-c", "private"), timeout=5, retries=0):
        self.namespace = namespace
        self.agent = agent
        self.access = access
        self.options = [*access, "-t", str(timeout), "-r", str(retries), "-On", "-m", ""]

    def impatient(self):
        """The same for an agent that may not listen yet, which is asked again every 0.2 s, and given up after one."""
        return Client(self.namespace, self.agent, self.access, timeout=0.2, retries=4)

    def get(self, *oids):
        return self.ask("snmpget", *oids)

    def get_next(self, *oids):
        return self.ask("snmpgetnext", *oids)

    def walk(self, oid):
        return self.ask("snmpwalk", oid)

    def bulk_walk(self, oid):
        return self.ask("snmpbulkwalk", oid)

    def set(self, *triples):
        """Each of the triples is an OID, snmpset's type letter and a value."""
        return self.ask("snmpset", *(part for triple in triples for part in triple))

    def set_error(self, *triples):
        """The name of the error that refuses the SET; "" when it was carried out."""
        try:
            self.set(*triples)
        except SnmpError as error:
            return error.reason
        return ""

    def has(self, oid):
        """Whether the agent answers and has the object."""
        try:
            return self.get(oid)[0].exists
        except SnmpError:
            return False

    def answers(self):
        return self.has(SYS_UP_TIME)

    def ip_addr_rows(self, walk=None):
        """ipAddrTable as address -> (ifIndex, mask), or "partial" for a row that came or went during the walk.

        A walk goes column by column, so such a row has some columns only."""
        columns = {}
        for bind in (walk or self.bulk_walk)(IP_ADDR_TABLE):
            if not bind.exists:
                continue
            column, address = bind.oid[len(IP_ADDR_ENTRY) + 1 :].split(".", 1)
            row = columns.setdefault(address, {})
            if column in row:
                raise AssertionError(f"column {column} of {address} came twice in one walk")
            row[column] = bind.value
        for address, row in columns.items():
            constant = {"1": address, "4": "0", "5": "65535"}
            if any(constant.get(column, value) != value for column, value in row.items()):
                raise AssertionError(f"row {address} is {row}")
        whole = ["1", "2", "3", "4", "5"]
        return {address: (int(row["2"]), row["3"]) if sorted(row) == whole else "partial"
                for address, row in columns.items()}

    def ask(self, tool, *arguments):
        done = run_command(self.namespace.wrap([tool, *self.options, self.agent, *arguments]), check=False)
        if done.returncode != 0:
            reason = REASON.search(done.stderr) or REASON.search(done.stdout)
            if reason:
                raise SnmpError(reason.group(1))
            raise SnmpError("timeout" if "Timeout" in done.stderr else done.stderr.strip() or done.stdout.strip())
        return [self.parse(line) for line in done.stdout.splitlines() if line.startswith(".")]

    @staticmethod
    def parse(line):
        match = ROW.match(line)
        if not match:
            raise AssertionError(f"cannot read the tool's line {line!r}")
        if match["value"] == '""':  # the tools name no type here
            return VarBind(match["oid"], "STRING", "")
        return VarBind(match["oid"], match["type"] or "", match["value"].strip('"'))
