"""Compares how fast the library is, in relation to others, with a baseline.

A ratio is the time of the best contender that is not part of the library, divided by the library's,
both from one run: above 1 the library is faster. Ratios say more than times, because a machine that
is busy or slow delays all contenders.
"""

from collections import defaultdict
from statistics import median

from report.results import Row, best, kind

_ALLOWED_LOSS = 0.10

Ratios = dict[str, float]  # by platform, program, workload and contender


def ratios(rows: list[Row]) -> Ratios:
    """The ratios of one run. Leaves out workloads that only the library has.

    If several processes measured a contender, its fastest one counts: which pages of memory a process
    gets makes heaps that just fit in a processor's cache faster or slower, by up to a half.
    """
    groups: dict[tuple[str, ...], list[Row]] = defaultdict(list)
    for row in rows:
        groups[row.platform, row.program, row.workload].append(row)
    found = {}
    for names, group in groups.items():
        other = best(group, "peer", "limit")
        for row in group:
            if other is not None and kind(row.contender) == "library":
                name = "/".join((*names, row.contender))
                found[name] = max(found.get(name, 0.0), other / row.nanoseconds)
    return found


def medians(runs: list[Ratios]) -> Ratios:
    """The median of the runs, for what all of them measured."""
    if not runs:
        return {}
    common = set(runs[0]).intersection(*runs[1:])
    return {name: median(run[name] for run in runs) for name in sorted(common)}


def _platform(name: str) -> str:
    return name.partition("/")[0]


def of_platforms(baseline: Ratios, measured: Ratios) -> Ratios:
    """The part of a baseline that has the platforms of the measurement."""
    platforms = {_platform(name) for name in measured}
    return {name: ratio for name, ratio in baseline.items() if _platform(name) in platforms}


def replaced(baseline: Ratios, measured: Ratios) -> Ratios:
    """A baseline that has the measured ratios, rounded, for their platforms; it keeps the others."""
    old = of_platforms(baseline, measured)
    kept = {name: ratio for name, ratio in baseline.items() if name not in old}
    return {**kept, **{name: round(ratio, 3) for name, ratio in measured.items()}}


def losses(measured: Ratios, baseline: Ratios) -> list[str]:
    """A line for each ratio that is lost or was not measured."""
    lines = []
    for name, expected in baseline.items():
        ratio = measured.get(name)
        if ratio is None:
            lines.append(f"{name}: not measured")
        elif ratio < expected * (1 - _ALLOWED_LOSS):
            lines.append(f"{name}: {ratio:.2f} instead of {expected:.2f}")
    return lines
