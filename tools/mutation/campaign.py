"""Runs mutants on several workers at once, and shows the progress."""

import collections
import hashlib
import queue
import sys
import threading
import time
from concurrent.futures import ThreadPoolExecutor

from .linemap import LineMap, Runs
from .mutants import Mutant
from .records import (
    KILLED, NOT_COMPILED, SURVIVED, UNCERTAIN, Equivalents, Records, Result, difference,
)  # fmt: skip
from .worker import BuildFailed, Test, Worker

START_SECONDS = 0.2  # of any test: the process, and linking a program
TESTS_OF_ORIGINAL = 3
SHARE_OF_INCLUDING = 0.2  # for a test that compiles a header itself
PRIOR = 4  # so many mutants weigh as much as the share of its lines that a test has in a source


class Selection:
    """The tests that can notice a mutant: those that run its lines."""

    def __init__(self, worker: Worker, tests: list[Test], lines: LineMap, patience: float):
        self._tests = {test.name: test for test in tests if test.name in lines}
        self._lines = lines
        self.patience = patience
        self._worker = worker
        self._includers: dict[str, tuple[list[str], set[str]]] = {}
        self._lock = threading.Lock()  # guards _includers
        self._counts_lock = threading.Lock()  # guards all below
        self._kills: dict[str, collections.Counter] = collections.defaultdict(collections.Counter)
        self._tries: dict[str, collections.Counter] = collections.defaultdict(collections.Counter)

    def of(self, mutant: Mutant, text: str) -> list[Test]:
        """In the order in which they promise most for their time, up to the patience in seconds."""
        chosen, seconds = [], 0.0
        candidates = self.candidates(mutant, text)
        for test in sorted(candidates, key=lambda test: self._promise(test, mutant.path)):
            seconds += self.runs(test).cpu_seconds + START_SECONDS
            if chosen and seconds > self.patience:
                break
            chosen.append(test)
        return chosen

    def candidates(self, mutant: Mutant, text: str) -> list[Test]:
        """The tests that run the mutant's lines, or compile them themselves. Long ones only if no
        other test does."""
        names = self._covering(mutant, text)
        including = self._including(mutant.path)[1]
        found = [
            test for test in self._tests.values() if test.name in names or test.target in including
        ]
        return [test for test in found if not test.is_long] or found

    def _covering(self, mutant: Mutant, text: str) -> set[str]:
        if self._lines.has_code(mutant.path):
            last = text.count("\n", 0, mutant.end) + 1
            return self._lines.covering(mutant.path, mutant.line(text), last)
        return {name for source in self._including(mutant.path)[0]
                for name in self._lines.covering(source, 0, 0)}  # fmt: skip

    def digest(self, tests: list[Test]) -> str:
        parts = sorted(f"{test.name} {self._lines[test.name].digest}" for test in tests)
        return hashlib.sha256("\n".join(parts).encode()).hexdigest()[:16]

    def runs(self, test: Test) -> Runs:
        return self._lines[test.name]

    def note(self, path: str, test: Test, killed: bool) -> None:
        with self._counts_lock:
            self._tries[path][test.name] += 1
            self._kills[path][test.name] += killed

    def _including(self, path: str) -> tuple[list[str], set[str]]:
        """The sources of the library that include a header, and the tests that compile a header or
        source themselves."""
        with self._lock:
            if path not in self._includers:
                self._includers[path] = self._worker.including(path)
            return self._includers[path]

    def _promise(self, test: Test, path: str) -> tuple[float, str]:
        """Seconds for a kill that one may expect; the least comes first."""
        with self._counts_lock:
            kills, tries = self._kills[path][test.name], self._tries[path][test.name]
        share = self._lines.share(test.name, path)
        if test.target in self._including(path)[1]:
            share += SHARE_OF_INCLUDING
        chance = (kills + PRIOR * share + 0.01) / (tries + PRIOR)
        return (START_SECONDS + self.runs(test).cpu_seconds) / chance, test.name


class Campaign:
    def __init__(self, workers: list[Worker], selection: Selection, records: Records,
                 equivalents: Equivalents):  # fmt: skip
        self._workers: queue.Queue[Worker] = queue.Queue()
        for worker in workers:
            self._workers.put(worker)
        self._selection = selection
        self._records = records
        self._equivalents = equivalents
        self._lock = threading.Lock()  # guards all below
        self._outcomes: collections.Counter = collections.Counter()

    def known(self, mutant: Mutant, text: str) -> Result | None:
        """A mutant that was killed stays so. One that survived is tried again with other tests or
        with more patience."""
        result = self._records.find(mutant.key(text))
        if result is None or result.outcome in (KILLED, NOT_COMPILED):
            return result
        if self._equivalents.reason(mutant, text) is not None:
            return result
        if result.patience < self._selection.patience:
            return None
        tests = self._selection.candidates(mutant, text)
        return result if result.tests == self._selection.digest(tests) else None

    def run(self, mutants: list[Mutant], texts: dict[str, str]) -> None:
        """Judges the mutants that no earlier run has judged. Those that survived come first: a run
        that is stopped must not leave out them alone."""
        missing = [mutant for mutant in mutants if self.known(mutant, texts[mutant.path]) is None]
        missing.sort(key=lambda mutant: not self._was_tried(mutant, texts[mutant.path]))
        self._total = len(missing)
        self._start = time.monotonic()
        known = len(mutants) - len(missing)
        print(f"mutate: {len(mutants)} mutants, {known} known from earlier runs")
        self._expect_original_survives(missing, texts)
        with ThreadPoolExecutor(max_workers=max(1, self._workers.qsize())) as pool:
            try:
                for _ in pool.map(lambda mutant: self._judge(mutant, texts[mutant.path]), missing):
                    pass
            except BaseException:
                pool.shutdown(cancel_futures=True)
                raise

    def _was_tried(self, mutant: Mutant, text: str) -> bool:
        return self._records.find(mutant.key(text)) is not None

    def _expect_original_survives(self, mutants: list[Mutant], texts: dict[str, str]) -> None:
        """A change that means nothing must survive; otherwise all mutants would count as killed."""
        for mutant in mutants:
            text = texts[mutant.path]
            if tests := self._selection.of(mutant, text):
                blank = Mutant(mutant.path, "nothing", len(text), len(text), "\n")
                outcome, killer = self._try(blank, text, tests[:TESTS_OF_ORIGINAL])
                if outcome != SURVIVED:
                    raise BuildFailed(f"{mutant.path} is {outcome} {killer} without a change")
                return

    def _judge(self, mutant: Mutant, text: str) -> None:
        tests = self._selection.of(mutant, text)
        # A line that no test runs needs no build.
        outcome, killer = self._try(mutant, text, tests) if tests else (SURVIVED, "")
        with self._lock:
            digest = self._selection.digest(self._selection.candidates(mutant, text))
            self._records.add(
                Result(mutant.key(text), outcome, killer, digest, self._selection.patience)
            )
            self._outcomes[outcome] += 1
            self._show(mutant, text, outcome)

    def _try(self, mutant: Mutant, text: str, tests: list[Test]) -> tuple[str, str]:
        worker = self._workers.get()
        worker.write(mutant.path, mutant.apply(text))
        try:
            return self._outcome(worker, mutant, tests)
        finally:
            worker.write(mutant.path, text)
            self._workers.put(worker)

    def _outcome(self, worker: Worker, mutant: Mutant, tests: list[Test]) -> tuple[str, str]:
        # Most mutants are killed by the first test: one run of the build makes both.
        if not worker.builds("kivsdu", tests[0].target) and not worker.builds("kivsdu"):
            return NOT_COMPILED, ""
        failed_once = ""
        for test in tests:
            failures = self._failures(worker, test)
            self._selection.note(mutant.path, test, failures == 2)
            if failures == 2:
                return KILLED, test.name
            if failures == 1:
                failed_once = test.name
        return (UNCERTAIN, failed_once) if failed_once else (SURVIVED, "")

    def _failures(self, worker: Worker, test: Test) -> int:
        """0, 1 or 2: of two runs. On a busy machine a test may fail without a reason, but it neither
        crashes nor hangs."""
        # A test that does not build has noticed the mutant, by a static assertion for example.
        if not worker.builds(test.target):
            return 2
        usual = self._selection.runs(test)
        code = worker.exit_code(test, usual)
        if code == 0:
            return 0
        hangs_or_crashes = code is None or code < 0
        return 2 if hangs_or_crashes or worker.exit_code(test, usual) != 0 else 1

    def _show(self, mutant: Mutant, text: str, outcome: str) -> None:
        done = sum(self._outcomes.values())
        left = (time.monotonic() - self._start) / done * (self._total - done) / 60
        if outcome in (SURVIVED, UNCERTAIN):
            print(f"\r\033[K{outcome}: {difference(mutant, text)}")
        print(
            f"\r\033[K[{done}/{self._total}] {self._outcomes[KILLED]} killed,"
            f" {self._outcomes[UNCERTAIN]} uncertain, {self._outcomes[SURVIVED]} survived,"
            f" {self._outcomes[NOT_COMPILED]} not compiled,"
            f" {left:.0f} min left, now {mutant.path}",
            end="",
        )
        sys.stdout.flush()
