"""Agents side by side, each in a namespace with the same routes: they are asked in turns, so that a slower machine slows
all of them, and the best and the median of several rounds are compared."""

import os
import statistics

from routebench.measure import LONG_SECONDS, Asking, Measurement

# What is asked in each round: the name of a line, and the options of a walk. Each walks whole columns.
WALKS = (
    ("column, GETBULK of 10", ("--repetitions", 10)),
    ("column, GETBULK of 25", ("--repetitions", 25)),
    ("column, GETBULK of 50", ("--repetitions", 50)),
    ("four columns, GETBULK of 10", ("--repetitions", 10, "--columns", 4)),
    ("column, GETNEXT", ("--getnext",)),
)
# The goals of ours against snmpd's own tables, by agent and line: rows/s, and for GETNEXT processor time.
GOALS = {
    "quorin": {"column, GETBULK of 10": 1.6, "column, GETBULK of 25": 1.9, "column, GETBULK of 50": 2.2,
               "four columns, GETBULK of 10": 2.5},
    "plugin": {"column, GETBULK of 25": 1.5},
}
MOST_GETNEXT_TIME = 0.7


def processor_seconds(pids):
    """What the processes have used so far, their threads included."""
    used = 0
    for pid in pids:
        for thread in os.listdir(f"/proc/{pid}/task"):
            with open(f"/proc/{pid}/task/{thread}/schedstat", encoding="ascii") as file:
                used += int(file.read().split()[0]) / 1e9
    return used


class Contender:
    """One agent. Prepared, it is ready to be asked: its routes are in the kernel, and it has shown all of them."""

    def __init__(self, agent, routes, limit):
        self.agent = agent
        self.limit = limit
        self.figures = {name: [] for name, _ in WALKS}
        self.routes = routes

    def prepare(self):
        agent = self.agent
        measurement = Measurement(agent, self.routes, self.limit)
        measurement.load_routes()
        measurement.start_on_standing_routes()
        if measurement.result["start"]["complete"] is None:
            raise RuntimeError(f"{agent.name} did not show all {self.routes} routes within {self.limit:g} s")
        if agent.cache_seconds:
            agent.keep_cache(LONG_SECONDS)
        self.cold = measurement.rows / measurement.result["start"]["walked"]
        self.asking = Asking(agent, ("taskset", "-c", str(measurement.bind_agent())))

    def ask(self, name, options):
        before = processor_seconds(self.agent.pids())
        walk = self.asking.walk(self.limit, *options)
        if walk["failure"] or not walk["complete"]:
            raise RuntimeError(f"{self.agent.name}, {name}: {walk['failure'] or 'not complete'} at {walk['rows']} rows")
        used = processor_seconds(self.agent.pids()) - before
        self.figures[name].append((walk["rows"] / walk["seconds"], used / walk["rows"] * 1e6))


def run(contenders, rounds, say):
    for number in range(rounds):
        say(f"round {number + 1} of {rounds} ...")
        for name, options in WALKS:
            # Each begins as often as another.
            for contender in contenders[number % len(contenders):] + contenders[:number % len(contenders)]:
                contender.ask(name, options)


def report(routes, contenders):
    """Lines of text: rates and processor time of each, and their ratios to snmpd's."""
    lines = [f"{routes} routes, best / median of {len(contenders[0].figures[WALKS[0][0]])} rounds in turns"]
    stock = next((contender for contender in contenders if contender.agent.name == "snmpd"), None)
    for contender in contenders:
        lines.append(f"{contender.agent.name}:")
        if contender is not stock and stock is not None:
            lines.append(f"  cold, load included: {contender.cold / stock.cold:.1f} times snmpd's rate, goal 15")
        for name, _ in WALKS:
            rates, times = zip(*contender.figures[name])
            text = (f"  {name:29}{max(rates):9.0f} / {statistics.median(rates):.0f} rows/s, "
                    f"{min(times):.2f} / {statistics.median(times):.2f} us of processor time a row")
            if contender is not stock and stock is not None:
                text += compared(contender.agent.name, name, contender.figures[name], stock.figures[name])
            lines.append(text)
    return lines


def compared(agent, name, ours, theirs):
    (our_rates, our_times), (their_rates, their_times) = zip(*ours), zip(*theirs)
    ratios = [best(ours_) / best(theirs_) for best, ours_, theirs_ in
              ((max, our_rates, their_rates), (statistics.median, our_rates, their_rates),
               (min, our_times, their_times))]
    text = f"; {ratios[0]:.2f} / {ratios[1]:.2f} times snmpd's rate, {ratios[2]:.2f} times its time"
    if agent == "quorin" and "GETNEXT" in name:
        return f"{text} (goal {MOST_GETNEXT_TIME}: {'reached' if ratios[2] <= MOST_GETNEXT_TIME else 'not reached'})"
    goal = GOALS.get(agent, {}).get(name)
    return f"{text} (goal {goal}: {'reached' if ratios[0] >= goal else 'not reached'})" if goal else text
