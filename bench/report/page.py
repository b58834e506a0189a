"""Makes one self-contained page of measured rows: a table and a plot for each program."""

import html
import io
import math
import re
from collections import defaultdict

import matplotlib

matplotlib.use("svg")
matplotlib.rcParams["svg.fonttype"] = "none"  # text as text
import matplotlib.pyplot as plt  # noqa: E402: the backend comes first

from report import goals  # noqa: E402
from report.results import Row, best, kind  # noqa: E402

_COLOURS = {"library": "#1f77b4", "peer": "#ff9f40", "limit": "#bbbbbb"}

# What grows in a family of workloads, and what is timed.
_GROWTH = {
    ("scaling_bench", "live"): ("live blocks", "free and allocate a block"),
    ("scaling_bench", "threads"): ("threads, with 1,000 live blocks each",
                                   "free and allocate a block"),
    ("scaling_bench", "slots"): ("slots of the thread heaps, with 8 threads",
                                 "free and allocate a block"),
    ("segments_bench", "Lengths"): ("bytes of a message", "message and answer"),
    ("direct_bench", "ReadNoWait"): ("reads in flight", "read a file"),
    ("direct_bench", "WriteNoWait"): ("writes in flight", "write a file"),
}

_STYLE = """
body { font: 16px/1.5 system-ui, sans-serif; max-width: 70rem; margin: 0 auto; padding: 1rem; }
table { border-collapse: collapse; font-size: 0.9rem; }
th, td { padding: 0.15rem 0.6rem; text-align: right; border-bottom: 1px solid #ddd; }
th:first-child, td:first-child, th:nth-child(2), td:nth-child(2) { text-align: left; }
.library, .reached { font-weight: 600; }
.missed { color: #a33; }
.scroll { overflow-x: auto; }
svg { max-width: 100%; height: auto; }
"""


def _time(nanoseconds: float) -> str:
    for unit, size in (("s", 1e9), ("ms", 1e6), ("µs", 1e3)):
        if nanoseconds >= size:
            return f"{nanoseconds / size:.3g} {unit}"
    return f"{nanoseconds:.3g} ns"


def _ratio(other: float | None, row: Row) -> str:
    """How many times as fast as the best of others."""
    if other is None or kind(row.contender) != "library":
        return ""
    return f"{other / row.nanoseconds:.2f}"


def _by(rows: list[Row], key) -> dict[str, list[Row]]:
    groups: dict[str, list[Row]] = defaultdict(list)
    for row in rows:
        groups[key(row)].append(row)
    return groups


def _table(rows: list[Row]) -> str:
    lines = ["<tr><th>workload</th><th>contender</th><th>median</th><th>spread</th>"
             "<th>to the best peer</th><th>to the limit</th></tr>"]
    for workload, group in _by(rows, lambda row: row.workload).items():
        peer, limit = best(group, "peer"), best(group, "limit")
        for row in sorted(group, key=lambda row: row.nanoseconds):
            lines.append(
                f'<tr class="{kind(row.contender)}"><td>{html.escape(workload)}</td>'
                f"<td>{html.escape(row.contender)}</td><td>{_time(row.nanoseconds)}</td>"
                f"<td>{row.spread:.0%}</td><td>{_ratio(peer, row)}</td>"
                f"<td>{_ratio(limit, row)}</td></tr>")
    return f'<div class="scroll"><table>{"".join(lines)}</table></div>'


def _svg(figure: plt.Figure) -> str:
    text = io.StringIO()
    figure.savefig(text, bbox_inches="tight", metadata={"Date": None})
    plt.close(figure)
    svg = text.getvalue()
    return svg[svg.index("<svg"):]


def _size(workload: str) -> int:
    """What grows: the number of threads where it varies, else the first number."""
    numbers = [int(number) for number in re.findall(r"\d+", workload)]
    return numbers[-1] if workload.startswith("threads") else numbers[0]


def _growth_plot(rows: list[Row], growing: str, timed: str) -> str:
    """Lines of the times of a family of workloads."""
    figure, axes = plt.subplots(figsize=(9, 4))
    for contender, points in _by(rows, lambda row: row.contender).items():
        points.sort(key=lambda row: _size(row.workload))
        axes.plot([_size(row.workload) for row in points], [row.nanoseconds for row in points],
                  marker="o", label=contender, linewidth=2.5 if kind(contender) == "library" else 1)
    sizes = sorted({_size(row.workload) for row in rows})
    times = [row.nanoseconds for row in rows]
    axes.set_xscale("log")
    axes.set_xticks(sizes, [f"{size:,}" for size in sizes])
    axes.minorticks_off()
    if max(times) > 10 * min(times):
        axes.set_yscale("log")
    else:
        axes.set_ylim(bottom=0)
    axes.yaxis.set_major_formatter(lambda value, _: _time(value))
    axes.yaxis.set_minor_formatter("")
    axes.set_xlabel(growing)
    axes.set_ylabel(timed)
    axes.legend(fontsize=8)
    axes.spines[["top", "right"]].set_visible(False)
    return _svg(figure)


def _plots(rows: list[Row]) -> str:
    """The plots of a program: lines for each family of workloads that grows, bars for the others."""
    bars = []
    plots = []
    for family, group in _by(rows, lambda row: row.workload.split()[0]).items():
        growth = _GROWTH.get((rows[0].program, family))
        if growth is None:
            bars += group
        else:
            plots.append(_growth_plot(group, *growth))
    return "".join(([_plot(bars)] if bars else []) + plots)


def _plot(rows: list[Row]) -> str:
    """Bars of the times, a group for each workload, on a logarithmic axis."""
    workloads = list(_by(rows, lambda row: row.workload))
    figure, axes = plt.subplots(figsize=(11, 0.6 + 0.16 * len(rows) + 0.12 * len(workloads)))
    place = 0.0
    ticks = []
    for workload in workloads:
        group = [row for row in rows if row.workload == workload]
        ticks.append(place + (len(group) - 1) / 2)
        for row in group:
            axes.barh(place, row.nanoseconds, xerr=row.nanoseconds * row.spread,
                      color=_COLOURS[kind(row.contender)], ecolor="#444")
            axes.text(row.nanoseconds * (1 + row.spread), place,
                      f"  {row.contender}, {_time(row.nanoseconds)}", va="center", fontsize=7)
            place += 1
        place += 1
    axes.set_xscale("log")
    axes.set_xlim(left=10 ** math.floor(math.log10(min(row.nanoseconds for row in rows)) - 0.1))
    axes.xaxis.set_major_formatter(lambda value, _: _time(value))
    axes.xaxis.set_minor_formatter("")
    axes.set_yticks(ticks, workloads, fontsize=8)
    axes.invert_yaxis()
    axes.set_xlabel("time of an operation")
    axes.spines[["top", "right"]].set_visible(False)
    return _svg(figure)


def _reached(goal: goals.Goal, rows: list[Row]) -> str:
    ratio = goal.reached(rows)
    if ratio is None:
        return "<td></td>"
    state = "missed" if ratio < goal.ratio else "reached"
    return f'<td class="{state}">{ratio:.2f}</td>'


def _goals(by_platform: dict[str, list[Row]]) -> str:
    """A table of the goals, with a column for each platform."""
    against = {"peer": "the best other", "limit": "the limit"}
    lines = ["<tr><th>operation</th><th>compared with</th><th>goal</th>"
             + "".join(f"<th>{html.escape(platform)}</th>" for platform in by_platform) + "</tr>"]
    for goal in goals.read():
        columns = "".join(_reached(goal, rows) for rows in by_platform.values())
        lines.append(f"<tr><td>{html.escape(goal.title)}</td><td>{against[goal.against]}</td>"
                     f"<td>{goal.ratio:g}</td>{columns}</tr>")
    return (f'<h2>Goals</h2><p>How many times as fast as others the library is, and is meant to be. '
            "Where an operation has several workloads, the lowest ratio counts.</p>"
            f'<div class="scroll"><table>{"".join(lines)}</table></div>')


def make(rows: list[Row]) -> str:
    """The whole page."""
    by_platform = _by(rows, lambda row: row.platform)
    body = [_goals(by_platform)]
    for platform, measured in by_platform.items():
        body.append(f"<h2>{html.escape(platform)}</h2>")
        for program, group in _by(measured, lambda row: row.program).items():
            body.append(f"<h3>{html.escape(program)}</h3>{_plots(group)}"
                        f"<details><summary>Numbers</summary>{_table(group)}</details>")
    return ("<!doctype html><html lang='en'><meta charset='utf-8'>"
            "<meta name='viewport' content='width=device-width'><title>kivsdu: performance</title>"
            f"<style>{_STYLE}</style><h1>Performance</h1>"
            "<p>The contenders of a workload took turns in one run. A bar is the median, its thin line the "
            "standard deviation. Blue bars are the library. Grey bars are bounds: the same call without "
            "the library, or the locked instructions alone. A ratio above 1 means that the library is "
            "faster.</p>"
            f"{''.join(body)}</html>")
