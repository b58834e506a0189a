"""Results of mutants, kept from run to run, and the report of them."""

import collections
import dataclasses
import json
import math
import tomllib
from pathlib import Path

from .mutants import Mutant

KILLED, SURVIVED, NOT_COMPILED = "killed", "survived", "not compiled"
UNCERTAIN = "uncertain"  # a test failed once, but not when it ran again


@dataclasses.dataclass(frozen=True)
class Result:
    key: str
    outcome: str
    killer: str  # the test that failed; empty if none did
    tests: str  # a digest of the tests that could run
    patience: float = 0  # seconds of tests that a survivor had at most


class Records:
    """A file to which each result is added at once, so that a run can be stopped at any time."""

    def __init__(self, path: Path):
        self._path = path
        self._results: dict[str, Result] = {}
        if path.exists():
            for line in path.read_text().splitlines():
                result = Result(**json.loads(line))
                self._results[result.key] = result

    def find(self, key: str) -> Result | None:
        return self._results.get(key)

    def add(self, result: Result) -> None:
        self._results[result.key] = result
        with self._path.open("a") as file:
            file.write(json.dumps(dataclasses.asdict(result)) + "\n")


class Equivalents:
    """Mutants that no test can kill, with the reasons: equivalent.toml."""

    def __init__(self, path: Path):
        self._reasons = {}
        for entry in tomllib.loads(path.read_text()).get("mutant", []):
            lines = self._plain(entry["before"]), self._plain(entry["after"])
            self._reasons[entry["file"], *lines] = entry["reason"]

    @staticmethod
    def _plain(lines: str) -> str:
        return " ".join(lines.split())

    def reason(self, mutant: Mutant, text: str) -> str | None:
        before, after = mutant.changed_lines(text)
        return self._reasons.get((mutant.path, self._plain(before), self._plain(after)))


@dataclasses.dataclass
class Row:
    killed: int = 0
    uncertain: int = 0
    survived: int = 0
    equivalent: int = 0
    not_compiled: int = 0

    def add(self, outcome: str, is_equivalent: bool) -> None:
        if outcome == KILLED:
            self.killed += 1
        elif outcome == NOT_COMPILED:
            self.not_compiled += 1
        elif is_equivalent:
            self.equivalent += 1
        elif outcome == UNCERTAIN:
            self.uncertain += 1
        else:
            self.survived += 1

    @property
    def judged(self) -> int:
        return self.killed + self.uncertain + self.survived

    def score(self) -> str:
        return f"{100 * self.killed / self.judged:.1f} %" if self.judged else "-"

    def text(self, name: str) -> str:
        return (f"| {name} | {self.score()} | {self.killed} | {self.uncertain} | {self.survived} |"
                f" {self.equivalent} | {self.not_compiled} |")  # fmt: skip


HEADER = """\
| | killed of those that a test could kill | killed | uncertain | survived | equivalent |\
 not compiled |
|---|---|---|---|---|---|---|"""


def interval(row: Row, part: float) -> tuple[float, float]:
    """In per cent: the bounds of the score of all mutants, with a confidence of 95 %, if a random
    part of them has this score. Wilson's interval for the number that a part of this size counts
    for: all of them leave no doubt."""
    if row.judged == 0:
        return 0, 100
    share = row.killed / row.judged
    if part >= 1:
        return 100 * share, 100 * share
    count, z = row.judged / (1 - part), 1.96
    middle = share + z * z / (2 * count)
    spread = z * math.sqrt(share * (1 - share) / count + z * z / (4 * count * count))
    whole = 1 + z * z / count
    return 100 * (middle - spread) / whole, 100 * (middle + spread) / whole


def report(
    judged: list[tuple[Mutant, Result]],
    texts: dict[str, str],
    equivalents: Equivalents,
    population: int,
) -> str:
    """The report in Markdown: tables of all, by folder and by file, and the survivors."""
    tables = {name: collections.defaultdict(Row) for name in ("All", "Folders", "Files")}
    survivors = []
    for mutant, result in judged:
        text = texts[mutant.path]
        reason = equivalents.reason(mutant, text)
        names = {"All": "all", "Folders": str(Path(mutant.path).parent), "Files": mutant.path}
        for title, name in names.items():
            tables[title][name].add(result.outcome, reason is not None)
        if result.outcome in (SURVIVED, UNCERTAIN) and reason is None:
            survivors.append(difference(mutant, text))
    whole = tables["All"]["all"]
    low, high = interval(whole, len(judged) / population)
    lines = [
        f"{len(judged)} of {population} mutants were tried. Killed of those that a test could kill:"
        f" {whole.score()}; of all mutants between {low:.1f} % and {high:.1f} %, with a confidence"
        " of 95 %.",
        "",
    ]
    for title, rows in tables.items():
        lines += [f"## {title}", "", HEADER, *(rows[name].text(name) for name in sorted(rows)), ""]
    lines += ["## Survivors", ""] + survivors
    return "\n".join(lines) + "\n"


def difference(mutant: Mutant, text: str) -> str:
    before, after = mutant.changed_lines(text)
    changed = [f"-{line}" for line in before.splitlines()]
    changed += [f"+{line}" for line in after.splitlines()]
    title = f"{mutant.path}:{mutant.line(text)}: {mutant.operator}"
    return "\n".join([title, "```diff", *changed, "```"])
