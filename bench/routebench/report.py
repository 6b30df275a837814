"""The table of a run, one per number of routes, agents side by side."""

NOTHING = "-"


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


def stall(phase):
    found = phase["stall"]
    return f"{seconds(found['longest'])} / {seconds(found['p99'])}" if found else NOTHING


def late(walk):
    if walk["failure"]:
        return walk["failure"]
    return f"{walk['late']}, longest {seconds(walk['longest'])}"


def visible(found):
    return f"{seconds(found['p50'])} / {seconds(found['p99'])} ({found['count']})" if found["count"] else "none in time"


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
    ("routes standing: start to first complete walk", lambda r: ready(r["start"])),
    ("  sysUpTime.0 meanwhile: longest / p99", lambda r: stall(r["start"])),
    ("  start to end of that walk", lambda r: ready(r["start"], "walked")),
    ("column, GETBULK of 10", lambda r: rate(r["column"], r["rows"])),
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
