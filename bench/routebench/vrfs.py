"""Ours with many VRFs, each a network namespace, or with the routes of both IP versions."""

import os
import re
import statistics
import subprocess
import time

from harness.namespace import Namespace, VrfDirectory
from harness.tools import run_command
from routebench.agents import AgentEnded, Quorin
from routebench.measure import SETTLE_SECONDS, Asking, Probe, stall_between
from routebench.report import microseconds, seconds
from routebench.turns import processor_seconds

# VRFs, IPv4 routes and IPv6 routes in each.
CASES = ((400, 1, 0), (1_000, 1_000, 0), (1, 1_000_000, 250_000))
SAMPLES = 16  # VRFs that are asked
REST_SECONDS = 20
COUNT = "1.3.6.1.4.1.32473.3.23.1.1.1.2."  # quorinFIBStatsTotalRoutes, by address family
# VRFs and routes of the case, figure, goal.
GOALS = ((400, 1, "memory", 48 * 1024), (400, 1, "rest", 0.01))
FECS = ((1_000, 48), (1_000_000, 160))  # of a million routes, and the bytes that a route may take


def route_lines(ipv4, ipv6):
    """For `ip -batch`, each in the family of its address."""
    for n in range(ipv4):
        yield f"route add {20 + (n >> 16)}.{n >> 8 & 255}.{n & 255}.0/24 via 10.0.0.2"
    for n in range(ipv6):
        yield f"route add 2001:{n >> 16:x}:{n & 65535:x}::/48 via fd00::2"


class Vrfs:
    def __init__(self, case, limit, directory):
        self.count, self.ipv4, self.ipv6 = case
        self.limit = limit
        self.names = [f"v{n}" for n in range(self.count)]
        self.samples = self.names[::-(-self.count // SAMPLES)] + self.names[-1:]
        self.namespace = Namespace()
        self.vrfs = VrfDirectory(os.path.join(directory, "netns"))
        self.agent = Quorin(self.namespace, directory)
        self.agent.mirror_options = ("--netns-dir", self.vrfs.path)
        self.agent.access = ("view all included .1\ngroup readers v2c all\n"
                             "access readers \"\" v2c noauth prefix all none none\n")
        self.agent.access += "".join(f"com2sec -Cn {name} all default c-{name}\n" for name in set(self.samples))

    def close(self):
        self.agent.stop()
        self.vrfs.close()
        self.namespace.close()

    def add_all(self):
        routes = "\n".join(route_lines(self.ipv4, self.ipv6)) + "\n"
        for name in self.names:
            vrf = self.vrfs.add(name, "link add a0 type veth peer name a1", "link set a0 up", "link set a1 up",
                                "addr add 10.0.0.1/24 dev a0", "addr add fd00::1/64 dev a0 nodad")
            run_command(vrf.wrap(["ip", "-batch", "-"]), input_text=routes)

    def has_all(self, name):
        wanted = [(COUNT + "1", self.ipv4), *([(COUNT + "2", self.ipv6)] if self.ipv6 else [])]
        found = self.namespace.run("snmpget", "-v2c", "-c", f"c-{name}", "-m", "", "-Oqv", "-t", "0.3", "-r", "0",
                                   self.agent.endpoint, *(oid for oid, _ in wanted), check=False).stdout.split()
        return len(found) == len(wanted) and all(text.isdigit() and int(text) >= routes
                                                 for text, (_, routes) in zip(found, wanted))

    def wait(self):
        begin = time.monotonic()
        for name in self.samples:
            while not self.has_all(name):
                if time.monotonic() - begin > self.limit:
                    raise AgentEnded(f"VRF {name} did not show its routes within {self.limit:g} s")
                self.agent.check()
                time.sleep(0.1)

    def measure(self):
        agent, result = self.agent, {}
        agent.start()
        asking = Asking(agent)
        asking.start("walk", "--limit", 30, "--patient").result()
        time.sleep(SETTLE_SECONDS)
        base = agent.memory()
        self.add_all()
        self.wait()
        time.sleep(SETTLE_SECONDS + 10)  # the kernel's router solicitations and reports of groups end
        now = agent.memory()
        result["memory"] = (now["agent"] - base["agent"]) / self.count
        result["mirror"] = (now["mirror"] - base["mirror"]) / self.count
        before = processor_seconds([agent.mirror.pid])
        time.sleep(REST_SECONDS)
        result["rest"] = (processor_seconds([agent.mirror.pid]) - before) / REST_SECONDS
        agent.stop()
        begin = time.monotonic()
        agent.start()
        stall = asking.stall()
        self.wait()
        result["start"] = time.monotonic() - begin
        result["stall"] = stall_between(stall.result(), begin, begin + result["start"])
        walks = [Probe(self.namespace, "walk", "--agent", agent.endpoint, "--community", f"c-{name}", "--limit",
                       self.limit / 4, "--repetitions", 10).result() for name in self.samples]
        result["rate"] = statistics.median(walk["rows"] / walk["seconds"] for walk in walks)
        return result


def report(case, result):
    goals = {figure: goal for *of, figure, goal in GOALS if tuple(of) == case[:2]}

    def goal(figure, text):
        if figure not in goals:
            return ""
        return f" (goal {text}: {'reached' if result[figure] <= goals[figure] else 'not reached'})"

    count, ipv4, ipv6 = case
    return [f"{count} VRFs of three interfaces, {ipv4} IPv4 and {ipv6} IPv6 routes in each",
            f"  agent's private memory for a VRF  {result['memory'] / 1024:.1f} KiB{goal('memory', '48 KiB')}, "
            f"for a route {result['memory'] / (ipv4 + ipv6):.0f} B; mirror's {result['mirror'] / 1024:.1f} KiB",
            f"  mirror's processor time at rest   {result['rest']:.2%}{goal('rest', '1 %')}",
            f"  start on standing routes          {seconds(result['start'])}; sysUpTime.0 meanwhile: longest / p99 "
            f"{seconds(result['stall']['longest'])} / {seconds(result['stall']['p99'])}",
            f"  column in a VRF, GETBULK of 10    {result['rate']:.0f} rows/s, {microseconds(1e6 / result['rate'])} a row"]


def fecs():
    """Memory beside the store, by route_cache_bench."""
    for count, goal in FECS:
        told = subprocess.run([os.path.join(os.environ["QUORIN_BIN_DIR"], "route_cache_bench"), "1000000", str(count)],
                              stdout=subprocess.PIPE, text=True, check=True).stdout
        scanned = float(re.search(r"together ([\d.]+)", told).group(1))
        yield (f"1000000 routes over {count} FECs: {scanned:g} bytes a route beside the store (goal {goal}: "
               f"{'reached' if scanned <= goal else 'not reached'})")
