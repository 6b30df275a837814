"""How load, requests and memory grow with the number of routes, for all agents, as an SVG that gnuplot draws."""

import shutil
import subprocess

# Each panel: its title, its unit, and its figure in the result of one agent at one number of routes.
PANELS = (
    ("Routes standing: start to first complete walk", "seconds", lambda r: r["start"]["complete"]),
    ("Random GETNEXT, median", "microseconds", lambda r: r["requests"]["next"]["p50_us"]),
    ("Agent's private memory", "MiB", lambda r: r["memory"]["agent"]["bytes"] / 2**20),
)
HEADER = """set terminal svg size 1150,380 font 'sans-serif,12' background rgb 'white'
set output '{path}'
set multiplot layout 1,{panels}
set logscale xy
set grid
set xlabel 'routes'
set format x '10^{{%L}}'
set key top left
"""


def missing():
    return None if shutil.which("gnuplot") else "/usr/bin/gnuplot"


def points(results, agent, figure):
    found = []
    for result in results:
        try:
            value = figure(result) if result["agent"] == agent else None
        except (KeyError, TypeError):
            value = None  # not measured, or not reached
        if value:
            found.append((result["routes"], value))
    return found


def script(results, path):
    lines = [HEADER.format(path=path, panels=len(PANELS))]
    agents = list(dict.fromkeys(result["agent"] for result in results))
    for number, (title, unit, figure) in enumerate(PANELS):
        curves = []
        for agent in agents:
            found = points(results, agent, figure)
            if found:
                data = f"$panel{number}_{agent}"
                lines += [f"{data} << END", *(f"{routes} {value}" for routes, value in found), "END"]
                curves.append(f"{data} with linespoints linewidth 2 title '{agent}'")
        if curves:
            lines += [f"set title \"{title}\"", f"set ylabel '{unit}'", "plot " + ", ".join(curves)]
    return "\n".join([*lines, "unset multiplot", ""])


def draw(results, path):
    subprocess.run(["gnuplot"], input=script(results, path), text=True, check=True)
