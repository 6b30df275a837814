"""The goals, judged by the figures of one run."""

SMALL, MIDDLE, LARGE = 1_000, 100_000, 1_000_000


class Run:
    """The results of a run. What was not measured is a KeyError or a TypeError."""

    def __init__(self, results):
        self.results = {(result["agent"], result["routes"]): result for result in results}

    def ours(self, routes):
        return self.results["quorin", routes]

    def stock(self, routes):
        return self.results["snmpd", routes]


def median(result, kind="next"):
    found = result["requests"][kind]
    if found["unexpected"] > found["count"] / 100:
        raise KeyError(f"{kind}: wrong answers")
    return found["p50_us"]


def column_rate(result):
    walk = result["column"]
    if not walk["complete"] or walk["rows"] < result["rows"]:
        raise KeyError("the column was not walked to its end")
    return walk["rows"] / walk["seconds"]


def cold_rate(result):
    return result["rows"] / result["start"]["walked"]


def longest_of_loads(result, key):
    return max(phase["stall"][key] * 1000 for phase in (result["under_way"], result["start"]))


def at_most(limit, unit=""):
    return lambda value: (value <= limit, f"{value:.4g}{unit}, goal at most {limit:g}{unit}")


def at_least(limit, unit=""):
    return lambda value: (value >= limit, f"{value:.4g}{unit}, goal at least {limit:g}{unit}")


def kernel_to_answer(run, routes):
    """Both ways to it: routes that come while the agent runs, and an agent that finds them standing."""
    return max(run.ours(routes)["under_way"]["complete"], run.ours(routes)["start"]["complete"])


GOALS = (
    ("random GETNEXT, 1,000,000 routes to 1,000",
     lambda run: median(run.ours(LARGE)) / median(run.ours(SMALL)), at_most(1.3, " times")),
    ("random GETNEXT at 100,000, to snmpd's with a warm cache",
     lambda run: median(run.ours(MIDDLE)) / median(run.stock(MIDDLE)), at_most(1.15, " times")),
    ("full column at 100,000, to snmpd's with a warm cache",
     lambda run: column_rate(run.ours(MIDDLE)) / column_rate(run.stock(MIDDLE)), at_least(1, " times")),
    *((f"{name} at 1,000,000, to a random GETNEXT",
       lambda run, kind=kind: median(run.ours(LARGE), kind) / median(run.ours(LARGE)), at_most(2, " times"))
      for name, kind in (("GET of no row", "miss"), ("GETNEXT past the end", "end"), ("half an index", "half"))),
    ("full column from a cold start at 100,000, to snmpd's with its load",
     lambda run: cold_rate(run.ours(MIDDLE)) / cold_rate(run.stock(MIDDLE)), at_least(10, " times")),
    ("full column at 1,000,000", lambda run: column_rate(run.ours(LARGE)), at_least(150_000, " rows/s")),
    ("snmpwalk of a column at 1,000,000, requests sent again or given up",
     lambda run: run.ours(LARGE)["column_getnext"]["late"] + bool(run.ours(LARGE)["column_getnext"]["failure"]),
     at_most(0)),
    ("kernel to first complete answer at 1,000,000", lambda run: kernel_to_answer(run, LARGE), at_most(15, " s")),
    ("the same, time per route to that at 100,000",
     lambda run: kernel_to_answer(run, LARGE) / kernel_to_answer(run, MIDDLE) / (LARGE / MIDDLE), at_most(1.3, " times")),
    ("longest stall of an unrelated GET at 1,000,000",
     lambda run: longest_of_loads(run.ours(LARGE), "longest"), at_most(25, " ms")),
    ("p99 of an unrelated GET at 1,000,000", lambda run: longest_of_loads(run.ours(LARGE), "p99"), at_most(12, " ms")),
    ("route change to visible row at 1,000,000, median",
     lambda run: run.ours(LARGE)["visible"]["p50"] * 1000, at_most(50, " ms")),
    ("agent memory per route at 1,000,000, beside the store",
     lambda run: run.ours(LARGE)["memory"]["agent"]["per_route"], at_most(64, " bytes")),
)


def lines(results):
    run = Run(results)
    found = []
    for name, value, judge in GOALS:
        try:
            is_reached, text = judge(value(run))
            verdict = "reached" if is_reached else "not reached"
        except (KeyError, TypeError):
            verdict, text = "not measured", "the run has not all figures for it"
        found.append(f"{verdict:12}  {name}: {text}")
    return found
