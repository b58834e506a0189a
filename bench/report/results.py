"""Reads the files that Google Benchmark writes, as rows that can be compared."""

import json
import re
from dataclasses import dataclass
from pathlib import Path

# Contenders that are part of the library, and bounds that no contender can beat.
_LIBRARY = ("library", "segment", "thread heap", "short heap", "thread cache", "memory stack", "plain",
            "RwLock", "SleeplessRwLock", "Spinlock<", "SpinlockOnce<", "LightSpinlock<")
_LIMIT = ("raw", "list behind", "WordLimit", "TicketLimit", "ReadLimit", "WriteLimit")

# Fields of a measurement that are not counters.
_FIELDS = {
    "name", "family_index", "per_family_instance_index", "run_name", "run_type", "repetitions",
    "threads", "aggregate_name", "aggregate_unit", "iterations", "real_time", "cpu_time",
    "time_unit", "repetition_index",
}
# Counters that are not the time of a contender.
_OTHER_COUNTERS = {"added", "bytes_per_second", "items_per_second", "least_share",
                   "longest_to_mean"}
_NOT_ARGUMENTS = re.compile(r"(manual_time|real_time|process_time|(iterations|repeats|min_time):.*)")
_NANOSECONDS = {"ns": 1.0, "us": 1e3, "ms": 1e6, "s": 1e9}


@dataclass(frozen=True)
class Row:
    """The time of one contender at one workload."""

    platform: str
    program: str
    workload: str  # with its arguments
    contender: str
    nanoseconds: float  # for an operation; the median of the repetitions
    spread: float  # the standard deviation, divided by the mean


def kind(contender: str) -> str:
    """'library', 'limit' or 'peer'."""
    if contender.startswith(_LIBRARY):
        return "library"
    return "limit" if contender.startswith(_LIMIT) else "peer"


def best(rows: list[Row], *kinds: str) -> float | None:
    """The shortest time of the contenders of these kinds; none if there are none."""
    return min((row.nanoseconds for row in rows if kind(row.contender) in kinds), default=None)


def _parts(name: str) -> list[str]:
    """Splits a benchmark's name at the slashes that are not between angle brackets."""
    parts = re.findall(r"(?:[^/<]|<(?:[^<>]|<[^<>]*>)*>)+", name)
    return [part for part in parts if not _NOT_ARGUMENTS.fullmatch(part)]


def workload_and_contender(name: str) -> tuple[str, str]:
    """'Alone<RwLock>', 'pair/mimalloc/64', 'MutexRaw' and 'Mutex' name a contender each."""
    family, *arguments = _parts(name)
    template = re.fullmatch(r"(\w+)<(.+)>", family)
    if template:
        return " ".join([template[1], *arguments]), template[2]
    if family[0].islower() and arguments:
        return " ".join([family, *arguments[1:]]), arguments[0]
    if family.endswith("Raw"):
        return " ".join([family.removesuffix("Raw"), *arguments]), "raw"
    return " ".join([family, *arguments]), "library"


def _counters(measurement: dict) -> dict[str, float]:
    return {name: value for name, value in measurement.items()
            if name not in _FIELDS | _OTHER_COUNTERS and not name.startswith("to_")}


def _rows_of(median: dict, spread: dict, platform: str, program: str) -> list[Row]:
    counters = _counters(median)
    if len(counters) > 1:  # the contenders took turns within one benchmark
        workload = " ".join(_parts(median["run_name"]))
        return [Row(platform, program, workload, name, value, spread.get(name, 0.0))
                for name, value in counters.items()]
    workload, contender = workload_and_contender(median["run_name"])
    time = median["real_time"] * _NANOSECONDS[median["time_unit"]]
    return [Row(platform, program, workload, contender, time, spread.get("real_time", 0.0))]


def read_file(path: Path, platform: str) -> list[Row]:
    """The rows of one file; its name up to '@' is the program's."""
    by_aggregate: dict[tuple[str, str], dict] = {}
    text = path.read_text()
    if not text:  # the program has none of the benchmarks that were asked for
        return []
    for measurement in json.loads(text)["benchmarks"]:
        by_aggregate[measurement["run_name"], measurement.get("aggregate_name", "")] = measurement
    rows = []
    for (name, aggregate), measurement in by_aggregate.items():
        if aggregate == "median":
            spread = by_aggregate.get((name, "cv"), {})
            rows += _rows_of(measurement, spread, platform, path.stem.split("@")[0])
    return rows


def read_folder(folder: Path) -> list[Row]:
    """The rows of FOLDER/PLATFORM/PROGRAM[@WORKLOAD].json."""
    rows = []
    for path in sorted(folder.glob("*/*.json")):
        rows += read_file(path, path.parent.name)
    return rows
