"""What is measured of one agent at one number of routes, by route_probe in the namespace of the routes."""

import json
import os
import subprocess
import time

from routebench.agents import COMMUNITY, Bystander

REQUESTS = 4000  # of each kind
CHANGES = 200
SETTLE_SECONDS = 2
LONG_SECONDS = 24 * 3600
CACHE_LIMIT_SECONDS = 150  # enough for two changes to an agent that reads the kernel once a minute


def quantile(values, q):
    return sorted(values)[int(q * (len(values) - 1))]


def stall_between(samples, begin, end):
    """Latencies of the unrelated GET while the table was loaded."""
    inside = [latency for due, latency in samples if begin <= due <= end] or [latency for _, latency in samples]
    return {"count": len(inside), "longest": max(inside), "p99": quantile(inside, 0.99)} if inside else None


class ProbeFailed(Exception):
    pass


class Probe:
    """One run of route_probe. It is started at once; `result` waits for what it found."""

    def __init__(self, namespace, *arguments, prefix=(), table="ipCidrRouteTable", is_ipv6=False):
        self.what = arguments[0]
        command = [*prefix, os.path.join(os.environ["QUORIN_BIN_DIR"], "route_probe"), "--table", table,
                   *(("--ipv6",) if is_ipv6 else ()), *map(str, arguments)]
        self.process = subprocess.Popen(namespace.wrap(["setpriv", "--pdeathsig", "KILL", *command]), text=True,
                                        stdin=subprocess.PIPE, stdout=subprocess.PIPE, stderr=subprocess.PIPE)

    def go(self):
        """Lets one begin that waits for a line."""
        self.process.stdin.write("\n")
        self.process.stdin.flush()

    def wait_for_line(self):
        if not self.process.stdout.readline():
            self.result()

    def result(self):
        """Closes its input, which ends what runs until then, and returns what it printed."""
        out, error = self.process.communicate()
        if self.process.returncode != 0:
            raise ProbeFailed(f"route_probe {self.what}: {error.strip()}")
        return json.loads(out)


class Asking:
    """The subcommands that ask one agent."""

    def __init__(self, agent, prefix=()):
        self.agent = agent
        self.prefix = prefix

    def start(self, subcommand, *arguments, prefix=None):
        return Probe(self.agent.namespace, subcommand, "--agent", self.agent.endpoint, "--community", COMMUNITY,
                     *arguments, prefix=self.prefix if prefix is None else prefix, table=self.agent.table,
                     is_ipv6=self.agent.is_ipv6)

    def stall(self):
        """Returns when the agent has answered for the first time."""
        # Above the others in the queue of the processor: it must measure the agent's wait and not its own.
        started = self.start("stall", prefix=("nice", "-n", "-15"))
        started.wait_for_line()
        return started

    def ready(self, routes, rows, limit):
        return self.start("ready", "--routes", routes, "--rows", rows, "--limit", limit)

    def walk(self, limit, *options):
        return self.start("walk", "--limit", limit, *options).result()

    def requests(self, routes, count, limit):
        return self.start("requests", "--routes", routes, "--count", count, "--limit", limit).result()

    def visible(self, count, limit):
        return self.start("visible", "--count", count, "--limit", limit).result()


class Measurement:
    """One agent at one scale, in a namespace whose interfaces are up and that has no routes but the connected ones."""

    def __init__(self, agent, routes, limit):
        self.agent = agent
        self.namespace = agent.namespace
        self.routes = routes
        self.limit = limit
        self.asking = Asking(agent)
        self.bystander = Bystander(agent.namespace, agent.path("bystander"))
        plan = Probe(self.namespace, "plan", "--routes", routes, *(() if agent.has_every_next_hop else ("--one-next-hop",)),
                     table=agent.table, is_ipv6=agent.is_ipv6).result()
        self.rows = plan["rows"]
        self.result = {"agent": agent.name, "routes": routes, "rows": self.rows, "table": agent.table}

    def run(self):
        """Fills and returns `result`. Leaves the routes in the kernel and the agent stopped."""
        try:
            if self.load_under_way():
                self.ask()
            self.agent.stop()
            self.start_on_standing_routes()
        finally:
            self.bystander.stop()
            self.agent.stop()
        return self.result

    def ready_limit(self):
        # An agent that reads the kernel once a minute shows a route only at the next time.
        return self.limit + self.agent.cache_seconds

    def readiness(self, ready, begin, samples):
        """Seconds from `begin`; the times are None where it was not reached."""
        ended = ready["complete_at"] if ready["sampled"] else ready["sampled_at"]
        return {"sampled": ready["sampled_at"] - begin if ready["sampled"] else None,
                "complete": ready["complete_at"] - begin if ready["complete"] else None,
                "walked": ready["complete_at"] + ready["walk"]["seconds"] - begin if ready["complete"] else None,
                "walk": ready["walk"], "stall": stall_between(samples, begin, ended)}

    def load_under_way(self):
        """The agent runs, then come the routes. False when it did not get to serve them."""
        self.agent.start()
        self.asking.start("walk", "--limit", 30, "--patient").result()  # it answers, and has taken in what there is
        time.sleep(SETTLE_SECONDS)
        self.agent.check()
        base = self.agent.memory()
        os.makedirs(self.bystander.directory, exist_ok=True)
        self.bystander.start()
        ready = self.asking.ready(self.routes, self.rows, self.ready_limit())
        stall = self.asking.stall()
        machine = Asking(self.bystander).stall()
        ready.go()
        load = Probe(self.namespace, "load", "--routes", self.routes, is_ipv6=self.agent.is_ipv6).result()
        ready = ready.result()
        under_way = self.readiness(ready, load["start"], stall.result())
        machine = self.readiness(ready, load["start"], machine.result())["stall"]
        self.bystander.stop()
        self.agent.check()
        self.result["under_way"] = {**under_way, "machine": machine, "kernel": load["end"] - load["start"]}
        turns = self.agent.turns()
        if turns:
            self.result["turns"] = turns
        if not ready["sampled"]:
            return False
        time.sleep(SETTLE_SECONDS)
        self.result["memory"] = {name: {"bytes": value, "per_route": (value - base[name]) / self.routes}
                                 for name, value in self.agent.memory().items()}
        return True

    def ask(self):
        """Single requests and walks, with client and agent on one processor and a cache that does not run out."""
        cache = self.agent.cache_seconds
        if cache:
            self.agent.keep_cache(LONG_SECONDS)
        one = self.bind_agent()
        asking = Asking(self.agent, ("taskset", "-c", str(one)))
        self.result["requests"] = asking.requests(self.routes, REQUESTS, self.limit / 4)
        self.result["column"] = asking.walk(self.limit / 2)
        self.result["column_50"] = asking.walk(self.limit / 2, "--repetitions", 50)
        self.result["column_getnext"] = asking.walk(self.limit / 2, "--getnext")
        self.bind_agent(everywhere=True)
        if cache:
            self.agent.keep_cache(cache)
        self.result["visible"] = self.asking.visible(CHANGES, CACHE_LIMIT_SECONDS if cache else self.limit / 4)
        self.bind_agent()
        if cache:
            self.agent.keep_cache(LONG_SECONDS)
        # Last, since an agent may be busy for long with requests that the walk gave up.
        self.result["table_walk"] = asking.walk(self.limit / 2, "--whole-table")
        self.agent.check()

    def bind_agent(self, everywhere=False):
        """Waking an idle processor costs several times what a request does, so asker and asked share one."""
        allowed = os.sched_getaffinity(0)
        one = max(allowed)
        for pid in self.agent.pids():
            for thread in os.listdir(f"/proc/{pid}/task"):
                os.sched_setaffinity(int(thread), allowed if everywhere else {one})
        return one

    def load_routes(self):
        Probe(self.namespace, "load", "--routes", self.routes, is_ipv6=self.agent.is_ipv6).result()

    def start_on_standing_routes(self):
        begin = time.monotonic()
        self.agent.start()
        asking = Asking(self.agent, ("taskset", "-c", str(self.bind_agent())))
        ready = asking.ready(self.routes, self.rows, self.limit)
        stall = self.asking.stall()
        ready.go()
        ready = ready.result()
        self.result["start"] = self.readiness(ready, begin, stall.result())
