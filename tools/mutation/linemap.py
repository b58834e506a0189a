"""Which test runs which lines of the library, and how long it takes; kept from run to run."""

import dataclasses
import json
from pathlib import Path

Lines = dict[str, list[int]]  # by source


@dataclasses.dataclass
class Runs:
    """What one test program did on the original."""

    digest: str  # of the sources that it depends on
    passed: bool
    seconds: float
    cpu_seconds: float
    lines: Lines  # that ran


class LineMap:
    def __init__(self, path: Path):
        self._path = path
        self._code: Lines = {}  # the lines for which the compiler has made code
        self._tests: dict[str, Runs] = {}
        if path.exists():
            kept = json.loads(path.read_text())
            self._code = kept["code"]
            self._tests = {name: Runs(**entry) for name, entry in kept["tests"].items()}
        self._sets: dict[tuple[str, str], set[int]] = {}

    def is_current(self, test: str, digest: str) -> bool:
        """A test that failed is tried again: a busy machine may have been the reason."""
        runs = self._tests.get(test)
        return runs is not None and runs.passed and runs.digest == digest

    def add(self, test: str, runs: Runs, code: Lines) -> None:
        self._tests[test] = runs
        self._code = {**self._code, **code}
        tests = {name: vars(entry) for name, entry in self._tests.items()}
        new = self._path.with_suffix(".new")
        new.write_text(json.dumps({"code": self._code, "tests": tests}))
        new.replace(self._path)

    def use(self, names: set[str]) -> None:
        """Leaves out all other tests, and those that fail without a mutant."""
        self._tests = {
            name: runs for name, runs in self._tests.items() if name in names and runs.passed
        }

    def __contains__(self, test: str) -> bool:
        return test in self._tests

    def __getitem__(self, test: str) -> Runs:
        return self._tests[test]

    def covering(self, source: str, first: int, last: int) -> set[str]:
        """The tests that run any of these lines. For lines that none runs, such as constants and
        what the compiler computes, the tests that run any line of the source."""
        lines = set(range(first, last + 1))
        ran = {test: self._ran(test, source) for test in self._tests}
        return {test for test in ran if lines & ran[test]} or {test for test in ran if ran[test]}

    def is_empty(self) -> bool:
        return not any(runs.lines for runs in self._tests.values())

    def has_code(self, source: str) -> bool:
        return source in self._code

    def share(self, test: str, source: str) -> float:
        """How much of what a test runs is in this source: 1 for a test of this source alone."""
        lines = self._tests[test].lines
        return len(lines.get(source, ())) / max(1, sum(map(len, lines.values())))

    def _ran(self, test: str, source: str) -> set[int]:
        key = test, source
        if key not in self._sets:
            self._sets[key] = set(self._tests[test].lines.get(source, ()))
        return self._sets[key]
