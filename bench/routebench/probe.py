"""The measuring program, started in the namespace of the routes."""

import json
import os
import subprocess

from routebench.agents import COMMUNITY


class ProbeFailed(Exception):
    pass


class Probe:
    """One run of route_probe. It is started at once; `result` waits for what it found."""

    def __init__(self, namespace, *arguments, prefix=(), table="ipCidrRouteTable"):
        self.what = arguments[0]
        command = [*prefix, os.path.join(os.environ["QUORIN_BIN_DIR"], "route_probe"), "--table", table, *map(str, arguments)]
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
                     *arguments, prefix=self.prefix if prefix is None else prefix, table=self.agent.table)

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
