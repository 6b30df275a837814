"""net-snmp's command-line tools as the client."""

import re
from dataclasses import dataclass

from harness.tools import run_command

IP_FORWARDING = "1.3.6.1.2.1.4.1.0"
SYSTEM = "1.3.6.1.2.1.1"
SYS_UP_TIME = SYSTEM + ".3.0"

ROW = re.compile(r"^\.(?P<oid>[\d.]+) = (?:(?P<type>[A-Za-z][A-Za-z0-9-]*): ?)?(?P<value>.*)$")
OCTETS = ("-Ox", "--hexOutputLength=0")  # as one line of hexadecimal digits, however many they are
REASON = re.compile(r"^Reason: \(?(\w+)", re.MULTILINE)


class SnmpError(Exception):
    """The agent refused or kept silent. Its text is the error-status by name, "timeout", or the tool's words."""


@dataclass(frozen=True)
class VarBind:
    oid: str
    type: str  # "INTEGER", "IpAddress", ...; "" for the exceptions ("No Such Instance ...")
    value: str

    @property
    def exists(self):
        return self.type != ""


def ticks(bind):
    return int(bind.value.split(")")[0].strip("("))


class Client:
    """One who asks an agent from a namespace."""

    def __init__(self, namespace, agent, access, timeout=5, retries=0):
        self.namespace = namespace
        self.agent = agent
        self.access = access
        self.options = [*access, "-t", str(timeout), "-r", str(retries), "-On", "-m", "", *OCTETS]

    def impatient(self):
        """The same for an agent that may not listen yet, which is asked again every 0.2 s, and given up after one."""
        return Client(self.namespace, self.agent, self.access, timeout=0.2, retries=4)

    def get(self, *oids):
        return self.ask("snmpget", *oids)

    def walk(self, oid, tool="snmpbulkwalk"):
        return [bind for bind in self.ask(tool, oid) if bind.exists]

    def set_error(self, oid, letter, value):
        """The name of the error that refuses the SET; "" when it was carried out. The letter is snmpset's."""
        try:
            self.ask("snmpset", oid, letter, value)
        except SnmpError as error:
            return str(error)
        return ""

    def has(self, oid):
        """Whether the agent answers and has the object."""
        try:
            return self.get(oid)[0].exists
        except SnmpError:
            return False

    def answers(self):
        return self.has(SYS_UP_TIME)

    def ask(self, tool, *arguments):
        done = run_command(self.namespace.wrap([tool, *self.options, self.agent, *arguments]), check=False)
        if done.returncode != 0:
            said = done.stderr + done.stdout
            reason = REASON.search(said)
            raise SnmpError(reason[1] if reason else "timeout" if "Timeout" in said else said)
        return [self.parse(line) for line in done.stdout.splitlines() if line.startswith(".")]

    @staticmethod
    def parse(line):
        match = ROW.match(line)
        if not match:
            raise AssertionError(f"cannot read the tool's line {line!r}")
        if match["value"] == '""':  # the tools name no type here
            return VarBind(match["oid"], "STRING", "")
        return VarBind(match["oid"], match["type"] or "", match["value"].strip('"'))
