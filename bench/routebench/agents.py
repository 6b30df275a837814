"""The agents that are compared, each as it is started, and what its memory is."""

import os
import re
import shutil
import signal
import socket
import subprocess
import time

from harness.programs import Program

COMMUNITY = "bench"
ACCESS = f"rwcommunity {COMMUNITY} 127.0.0.1\n"
SNMPD = "/usr/sbin/snmpd"
ZEBRA = "/usr/lib/frr/zebra"
ZEBRA_MODULE = "/usr/lib/x86_64-linux-gnu/frr/modules/zebra_snmp.so"
TURNS = re.compile(r"turns of (\w+): \d+, p99 ([\d.]+) ms, longest ([\d.]+) ms")
STOP_SECONDS = 60  # a large table is freed row by row


class AgentEnded(Exception):
    pass


class Agent:
    """One agent in the namespace: what `start` starts, `stop` ends. `directory` is its own and survives a restart."""

    table = "ipCidrRouteTable"
    is_ipv6 = False  # whether the routes are those of IPv6
    has_every_next_hop = True
    port = 1161
    # Seconds that it may serve what it read before; none when it is told of changes.
    cache_seconds = 0

    def __init__(self, namespace, directory):
        self.namespace = namespace
        self.directory = directory
        self.programs = []

    @property
    def endpoint(self):
        return f"udp:127.0.0.1:{self.port}"

    @classmethod
    def missing(cls):
        """What must be there and is not, as a path; None when nothing is missing."""
        return next((path for path in cls.needs() if not os.path.exists(path)), None)

    def path(self, name):
        return os.path.join(self.directory, name)

    def write(self, name, text):
        with open(self.path(name), "w", encoding="utf-8") as file:
            file.write(text)
        return self.path(name)

    def run(self, name, *arguments, environment=None):
        program = Program(self.namespace, name, arguments, self.path(f"{os.path.basename(name)}.log"),
                          {"SNMP_PERSISTENT_DIR": self.path("state"), "MIBS": "", **(environment or {})})
        self.programs.append(program)
        return program

    def check(self):
        for program in self.programs:
            if not program.running:
                raise AgentEnded(f"{program.name} ended; it said:\n{program.output()}")

    def stop(self):
        for program in reversed(self.programs):
            program.process.terminate()
            try:
                program.wait(STOP_SECONDS)
            except AssertionError:
                program.kill()
        self.programs = []

    def pids(self):
        """The processes that a request goes through."""
        return [program.pid for program in self.programs]

    def turns(self):
        """None for an agent that does not count them."""
        return None

    def memory(self):
        """Bytes by name: "agent", the process that holds the routes; others as there are."""
        return {"agent": private_memory(self.serving.pid)}


class Quorin(Agent):
    """quorin-mirrord and quorind."""

    name = "quorin"
    mirror_options = ()
    access = ""  # more lines of the agent's configuration

    @classmethod
    def needs(cls):
        return [os.path.join(os.environ["QUORIN_BIN_DIR"], name) for name in ("quorin-mirrord", "quorind")]

    def start(self):
        store = self.path("store")
        shutil.rmtree(store, ignore_errors=True)
        self.mirror = self.run("quorin-mirrord", "-f", "--store", store, *self.mirror_options)
        configuration = self.write("quorind.conf", ACCESS + self.access)
        self.serving = self.run("quorind", "-f", "-C", "-c", configuration, "--store", store, self.endpoint)

    def pids(self):
        return [self.serving.pid]

    def turns(self):
        """For how long the agent has served nothing else since its start, by kind: "p99" and "longest" in ms."""
        self.serving.process.send_signal(signal.SIGUSR1)
        for _ in range(1000):
            found = TURNS.findall(self.serving.output())
            if len(found) >= 3:
                return {kind: {"p99": float(p99), "longest": float(longest)} for kind, p99, longest in found[-3:]}
            time.sleep(0.01)
        raise AgentEnded("quorind does not log its turns")

    def memory(self):
        store = self.path("store")
        return {"agent": private_memory(self.serving.pid, store), "mirror": private_memory(self.mirror.pid, store),
                "store mapping": mapped_memory(self.serving.pid, store)}


class Snmpd(Agent):
    """Debian's snmpd with its own modules."""

    name = "snmpd"
    port = 1162
    # IPCIDRROUTETABLE_CACHE_TIMEOUT and INETCIDRROUTETABLE_CACHE_TIMEOUT in net-snmp 5.9.3, ip-forward-mib.
    cache_seconds = 60
    # nsCacheTimeout (NET-SNMP-AGENT-MIB) of the tables.
    cache_timeout = {"ipCidrRouteTable": "1.3.6.1.4.1.8072.1.5.3.1.2.1.3.6.1.2.1.4.24.4",
                     "inetCidrRouteTable": "1.3.6.1.4.1.8072.1.5.3.1.2.1.3.6.1.2.1.4.24.7"}
    # smux listens on a fixed TCP port, and is in nobody's way.
    without_modules = "-smux"
    configuration = ACCESS

    @classmethod
    def needs(cls):
        return [SNMPD]

    @property
    def has_every_next_hop(self):
        return self.is_ipv6  # /proc/net/route has the first one, /proc/net/ipv6_route a line for each

    def start(self):
        configuration = self.write("snmpd.conf", self.configuration)
        self.serving = self.run(SNMPD, "-f", "-C", "-c", configuration, "-LEw", "-I", self.without_modules, self.endpoint)

    def keep_cache(self, seconds):
        for _ in range(30):  # it may be busy with what others gave up
            done = self.namespace.run("snmpset", "-v2c", "-c", COMMUNITY, "-m", "", "-t", "10", "-r", "0", self.endpoint,
                                      self.cache_timeout[self.table], "i", str(seconds), check=False)
            if done.returncode == 0:
                return
        raise AgentEnded(f"snmpd does not let its cache be kept: {done.stderr.strip()}")


class Bystander(Snmpd):
    """An snmpd whose route tables nobody asks for: what it takes to answer is the machine's."""

    name = "bystander"
    port = 1166


class Subagent(Quorin):
    """quorin-mirrord, and quorind as an AgentX subagent of an snmpd whose own route tables are off."""

    name = "subagent"
    port = 1164

    def start(self):
        store, socket_path = self.path("store"), self.path("agentx")
        shutil.rmtree(store, ignore_errors=True)
        self.mirror = self.run("quorin-mirrord", "-f", "--store", store)
        configuration = self.write("snmpd.conf", f"{ACCESS}master agentx\nagentXSocket {socket_path}\n")
        self.master = self.run(SNMPD, "-f", "-C", "-c", configuration, "-LEw", "-I",
                               "-smux,ipCidrRouteTable,inetCidrRouteTable", self.endpoint)
        wait_for_socket(socket_path)
        self.serving = self.run("quorind", "-f", "-X", "-x", socket_path, "-C", "-c", self.write("quorind.conf", ""),
                                "--store", store)

    def pids(self):
        return [self.master.pid, self.serving.pid]


class Plugin(Quorin):
    """quorin-mirrord, and the library as a plugin of snmpd."""

    name = "plugin"
    port = 1165

    def turns(self):
        return None

    @classmethod
    def needs(cls):
        return [*super().needs(), SNMPD, cls.plugin_path()]

    @staticmethod
    def plugin_path():
        return os.path.abspath(os.path.join(os.environ["QUORIN_BIN_DIR"], "..", "lib", "quorin.so"))

    def start(self):
        store = self.path("store")
        shutil.rmtree(store, ignore_errors=True)
        self.mirror = self.run("quorin-mirrord", "-f", "--store", store)
        lines = f"{ACCESS}dlmod quorin {self.plugin_path()}\nquorinStore {store}\n"
        self.serving = self.run(SNMPD, "-f", "-C", "-c", self.write("snmpd.conf", lines), "-LEw", "-I", "-smux",
                                self.endpoint)


class Zebra(Snmpd):
    """FRR's zebra as an AgentX subagent of an snmpd whose own route tables are off."""

    name = "zebra"
    port = 1163
    # It registers ipCidrRouteTable too, without a row in it.
    table = "ipForwardTable"
    cache_seconds = 0
    without_modules = "-smux,ipCidrRouteTable,inetCidrRouteTable"

    @classmethod
    def needs(cls):
        return [SNMPD, ZEBRA, ZEBRA_MODULE]

    def start(self):
        socket_path = self.path("agentx")
        self.configuration = f"{ACCESS}master agentx\nagentXSocket {socket_path}\nagentXPerms 0777 0777\n"
        super().start()
        wait_for_socket(socket_path)
        # zebra gives up root for the user frr, who must reach the socket and write in a directory.
        os.chmod(self.directory, 0o755)
        own = self.path("frr")
        os.makedirs(own, exist_ok=True)
        shutil.chown(own, "frr", "frr")
        self.write("frr.conf", f"agentXSocket {socket_path}\n")
        configuration = self.write("zebra.conf", "agentx\n")
        self.serving = self.run(ZEBRA, "-M", "snmp", "-A", "127.0.0.1", "-P", "0", "-f", configuration,
                                "-z", f"{own}/zserv.api", "-i", f"{own}/pid", "--vty_socket", own,
                                environment={"SNMPCONFPATH": self.directory})


AGENTS = {agent.name: agent for agent in (Quorin, Snmpd, Zebra, Subagent, Plugin)}


def wait_for_socket(path, seconds=10):
    for _ in range(seconds * 100):
        with socket.socket(socket.AF_UNIX) as client:
            try:
                return client.connect(path)
            except OSError:
                subprocess.run(["sleep", "0.01"], check=True)
    raise AgentEnded(f"snmpd does not listen at {path}")


def mappings(pid):
    """Pairs of a mapping's path ("" when it has none) and its figures in bytes by name."""
    found = []
    with open(f"/proc/{pid}/smaps", encoding="utf-8") as smaps:
        for line in smaps:
            words = line.split()
            if not words[0].endswith(":"):
                found.append((" ".join(words[5:]), {}))
            elif words[-1] == "kB":
                found[-1][1][words[0][:-1]] = int(words[1]) * 1024
    return found


def private_memory(pid, store=None):
    """Resident memory that a process has written and shares with nobody, the mapping of the store left out. Clean pages
    are those of libraries, private only until another program uses them."""
    return sum(figures["Private_Dirty"] for path, figures in mappings(pid) if not (store and path.startswith(store)))


def mapped_memory(pid, store):
    return sum(figures["Rss"] for path, figures in mappings(pid) if path.startswith(store))
