"""What a run prints: a table for each number of routes, agents side by side, and the goals that it reached."""

NOTHING = "-"
SMALL, MIDDLE, LARGE = 1_000, 100_000, 1_000_000


def seconds(value):
    if value is None:
        return NOTHING
    return f"{value * 1000:.1f} ms" if value < 1 else f"{value:.2f} s"


def microseconds(value):
    return seconds(value / 1e6) if value >= 10000 else f"{value:.0f} us"


def ready(phase, key="complete"):
    """A time to the first complete walk, or where the wait for it stopped."""
    if phase[key] is not None:
        return seconds(phase[key])
    walk = phase["walk"]
    if phase["sampled"] is None:
        return "no route in time"
    if walk["failure"]:
        return f"{walk['rows']} rows: {walk['failure']}"
    return f"never: {walk['rows']} rows" if walk["complete"] else f"stopped: {walk['rows']} rows"


def rate(walk, rows):
    if walk["rows"] == 0:
        return walk["failure"] or "no rows"
    text = f"{walk['rows'] / walk['seconds']:.0f}/s"
    if walk["failure"]:
        return f"{text}, failed at {walk['rows']}"
    if not walk["complete"]:
        return f"{text}, stopped at {walk['rows']}"
    return text if walk["rows"] >= rows else f"{text}, {walk['rows']} of {rows}"


def latency(kind):
    text = f"{microseconds(kind['p50_us'])} / {microseconds(kind['p99_us'])}"
    if kind["count"] < 100:
        text += f" ({kind['count']})"
    return f"{text}, {kind['unexpected']} wrong" if kind["unexpected"] else text


def stall(phase, whose="stall"):
    found = phase[whose]
    return f"{seconds(found['longest'])} / {seconds(found['p99'])}" if found else NOTHING


def late(walk):
    if walk["failure"]:
        return walk["failure"]
    return f"{walk['late']}, longest {seconds(walk['longest'])}"


def visible(found):
    return f"{seconds(found['p50'])} / {seconds(found['p99'])} ({found['count']})" if found["count"] else "none in time"


def turns(result, kind):
    found = result["turns"][kind]
    return f"{found['longest']:.1f} ms / {found['p99']:.1f} ms"


def memory(result, name):
    found = result["memory"].get(name)
    return f"{found['per_route']:.0f} B, {found['bytes'] / 2**20:.0f} MiB" if found else NOTHING


# What a line is called, and how it is read from the result of one agent. A part that was not measured is a KeyError.
LINES = (
    ("table", lambda r: r["table"]),
    ("rows of a complete column", lambda r: str(r["rows"])),
    ("kernel: all routes given to it", lambda r: seconds(r["under_way"]["kernel"])),
    ("agents running: to first complete walk", lambda r: ready(r["under_way"])),
    ("  sysUpTime.0 meanwhile: longest / p99", lambda r: stall(r["under_way"])),
    ("  the same of an snmpd that nobody asks for routes", lambda r: stall(r["under_way"], "machine")),
    ("  agent's turns: of tasks, longest / p99", lambda r: turns(r, "tasks")),
    ("  agent's turns: of requests, longest / p99", lambda r: turns(r, "requests")),
    ("routes standing: start to first complete walk", lambda r: ready(r["start"])),
    ("  sysUpTime.0 meanwhile: longest / p99", lambda r: stall(r["start"])),
    ("  start to end of that walk", lambda r: ready(r["start"], "walked")),
    ("column, GETBULK of 10", lambda r: rate(r["column"], r["rows"])),
    ("column, GETBULK of 50", lambda r: rate(r["column_50"], r["rows"])),
    ("column, GETNEXT", lambda r: rate(r["column_getnext"], r["rows"])),
    ("  answers later than 1 s", lambda r: late(r["column_getnext"])),
    ("whole table, GETBULK of 10", lambda r: rate(r["table_walk"], 0)),
    ("random GETNEXT: median / p99", lambda r: latency(r["requests"]["next"])),
    ("GET of no row", lambda r: latency(r["requests"]["miss"])),
    ("GETNEXT past the end", lambda r: latency(r["requests"]["end"])),
    ("GETNEXT with half an index", lambda r: latency(r["requests"]["half"])),
    ("route change to visible: median / p99", lambda r: visible(r["visible"])),
    ("agent's private memory per route, in all", lambda r: memory(r, "agent")),
    ("store as mapped by the agent", lambda r: memory(r, "store mapping")),
    ("mirror's private memory", lambda r: memory(r, "mirror")),
)


def cell(line, result):
    if "stopped" in result and "under_way" not in result:
        return NOTHING
    try:
        return line(result)
    except KeyError:
        return NOTHING


def table(routes, results):
    """The lines of the table of one scale. `results` in the order of the columns."""
    rows = [[f"{routes} routes", *(result["agent"] for result in results)]]
    rows += [[name, *(cell(line, result) for result in results)] for name, line in LINES]
    widths = [max(len(row[i]) for row in rows) for i in range(len(rows[0]))]
    lines = ["  ".join([row[0].ljust(widths[0]), *(text.rjust(width) for text, width in zip(row[1:], widths[1:]))])
             for row in rows]
    lines += [f"{result['agent']}: {result['stopped']}" for result in results if "stopped" in result]
    return lines


def median(result, kind="next"):
    found = result["requests"][kind]
    if found["unexpected"] > found["count"] / 100:
        raise KeyError(f"{kind}: wrong answers")
    return found["p50_us"]


def column_rate(result, column="column"):
    walk = result[column]
    if not walk["complete"] or walk["rows"] < result["rows"]:
        raise KeyError("the column was not walked to its end")
    return walk["rows"] / walk["seconds"]


def cold_rate(result):
    return result["rows"] / result["start"]["walked"]


def greatest(result, *keys):
    """Of both loads: routes that come while the agent runs, and an agent that finds them there."""
    found = [result["under_way"], result["start"]]
    for key in keys:
        found = [phase[key] for phase in found]
    return max(found)


# Of each: the value, from the results of ours and of stock snmpd by number of routes; its limit and unit.
GOALS = (
    ("random GETNEXT, 1,000,000 routes to 1,000", lambda ours, stock: median(ours[LARGE]) / median(ours[SMALL]),
     "at most", 1.3, " times"),
    ("random GETNEXT at 100,000, to snmpd's with a warm cache",
     lambda ours, stock: median(ours[MIDDLE]) / median(stock[MIDDLE]), "at most", 1.15, " times"),
    ("full column at 100,000, to snmpd's with a warm cache",
     lambda ours, stock: column_rate(ours[MIDDLE]) / column_rate(stock[MIDDLE]), "at least", 1, " times"),
    *((f"{name} at 1,000,000, to a random GETNEXT",
       lambda ours, stock, kind=kind: median(ours[LARGE], kind) / median(ours[LARGE]), "at most", 2, " times")
      for name, kind in (("GET of no row", "miss"), ("GETNEXT past the end", "end"), ("half an index", "half"))),
    ("full column from a cold start at 100,000, to snmpd's with its load",
     lambda ours, stock: cold_rate(ours[MIDDLE]) / cold_rate(stock[MIDDLE]), "at least", 10, " times"),
    ("column by GETBULK of 50 at 1,000,000, to its rate at 1,000",
     lambda ours, stock: column_rate(ours[LARGE], "column_50") / column_rate(ours[SMALL], "column_50"),
     "at least", 0.8, " times"),
    ("full column at 1,000,000", lambda ours, stock: column_rate(ours[LARGE]), "at least", 150_000, " rows/s"),
    ("snmpwalk of a column at 1,000,000, requests sent again or given up",
     lambda ours, stock: ours[LARGE]["column_getnext"]["late"] + bool(ours[LARGE]["column_getnext"]["failure"]),
     "at most", 0, ""),
    ("kernel to first complete answer at 1,000,000", lambda ours, stock: greatest(ours[LARGE], "complete"),
     "at most", 15, " s"),
    ("the same, time per route to that at 100,000",
     lambda ours, stock: greatest(ours[LARGE], "complete") / greatest(ours[MIDDLE], "complete") / (LARGE / MIDDLE),
     "at most", 1.3, " times"),
    ("longest stall of an unrelated GET at 1,000,000",
     lambda ours, stock: greatest(ours[LARGE], "stall", "longest") * 1000, "at most", 25, " ms"),
    ("p99 of an unrelated GET at 1,000,000", lambda ours, stock: greatest(ours[LARGE], "stall", "p99") * 1000,
     "at most", 10, " ms"),
    ("route change to visible row at 1,000,000, median", lambda ours, stock: ours[LARGE]["visible"]["p50"] * 1000,
     "at most", 50, " ms"),
    ("agent memory per route at 1,000,000, beside the store",
     lambda ours, stock: ours[LARGE]["memory"]["agent"]["per_route"], "at most", 64, " bytes"),
)


def goals(results):
    """Each goal, judged by the figures of one run."""
    ours, stock = ({result["routes"]: result for result in results if result["agent"] == name}
                   for name in ("quorin", "snmpd"))
    lines = []
    for name, value, kind, limit, unit in GOALS:
        try:
            found = value(ours, stock)
            is_reached = found <= limit if kind == "at most" else found >= limit
            lines.append(f"{'reached' if is_reached else 'not reached':12}  {name}: {found:.4g}{unit}, goal {kind} {limit:g}{unit}")
        except (KeyError, TypeError):
            lines.append(f"{'not measured':12}  {name}: the run has not all figures for it")
    return lines
