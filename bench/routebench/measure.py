"""What is measured of one agent at one number of routes."""

import os
import time

from routebench.probe import Asking, Probe

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


class Measurement:
    """One agent at one scale, in a namespace whose interfaces are up and that has no routes but the connected ones."""

    def __init__(self, agent, routes, limit):
        self.agent = agent
        self.namespace = agent.namespace
        self.routes = routes
        self.limit = limit
        self.asking = Asking(agent)
        plan = Probe(self.namespace, "plan", "--routes", routes, *(() if agent.has_every_next_hop else ("--one-next-hop",)),
                     table=agent.table).result()
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
        ready = self.asking.ready(self.routes, self.rows, self.ready_limit())
        stall = self.asking.stall()
        ready.go()
        load = Probe(self.namespace, "load", "--routes", self.routes).result()
        ready = ready.result()
        under_way = self.readiness(ready, load["start"], stall.result())
        self.agent.check()
        self.result["under_way"] = {**under_way, "kernel": load["end"] - load["start"]}
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

    def start_on_standing_routes(self):
        begin = time.monotonic()
        self.agent.start()
        asking = Asking(self.agent, ("taskset", "-c", str(self.bind_agent())))
        ready = asking.ready(self.routes, self.rows, self.limit)
        stall = self.asking.stall()
        ready.go()
        ready = ready.result()
        self.result["start"] = self.readiness(ready, begin, stall.result())
