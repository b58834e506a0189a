"""Runs mutants on several workers at once, and shows the progress."""

import collections
import hashlib
import queue
import sys
import threading
import time
import tomllib
from concurrent.futures import ThreadPoolExecutor
from pathlib import Path

from .mutants import Mutant
from .records import KILLED, NOT_COMPILED, SURVIVED, Records, Result, difference
from .worker import BuildFailed, Test, Worker


class Coverage:
    """Which tests cover a source: tests.toml."""

    def __init__(self, path: Path, tests: list[Test]):
        self._covered = tomllib.loads(path.read_text())["covered"]
        self._tests = tests

    def of(self, source: str) -> list[Test]:
        prefixes = [prefix for prefix in self._covered if source.startswith(prefix)]
        covering = self._covered[max(prefixes, key=len)] if prefixes else []
        return [test for test in self._tests if test.folder in covering or test.name in covering]


def digest_of_tests(source: Path) -> str:
    digest = hashlib.sha256()
    for path in sorted((source / "tests").rglob("*")):
        if path.is_file():
            digest.update(str(path.relative_to(source)).encode() + path.read_bytes())
    return digest.hexdigest()[:16]


class Campaign:
    def __init__(self, workers: list[Worker], coverage: Coverage, records: Records, tests: str):
        self._workers: queue.Queue[Worker] = queue.Queue()
        for worker in workers:
            self._workers.put(worker)
        self._coverage = coverage
        self._records = records
        self._tests_digest = tests
        self._lock = threading.Lock()  # guards all below
        self._kills: dict[str, collections.Counter] = collections.defaultdict(collections.Counter)
        self._outcomes: collections.Counter = collections.Counter()

    def run(self, mutants: list[Mutant], texts: dict[str, str]) -> None:
        """Judges the mutants that no earlier run has judged."""
        missing = [
            mutant for mutant in mutants
            if self._records.find(mutant.key(texts[mutant.path]), self._tests_digest) is None
        ]  # fmt: skip
        self._total = len(missing)
        self._start = time.monotonic()
        known = len(mutants) - len(missing)
        print(f"mutate: {len(mutants)} mutants, {known} known from earlier runs")
        if missing:
            self._expect_original_survives(missing[0], texts[missing[0].path])
        with ThreadPoolExecutor(max_workers=max(1, self._workers.qsize())) as pool:
            try:
                for _ in pool.map(lambda mutant: self._judge(mutant, texts[mutant.path]), missing):
                    pass
            except BaseException:
                pool.shutdown(cancel_futures=True)
                raise

    def _expect_original_survives(self, mutant: Mutant, text: str) -> None:
        """A change that means nothing must survive; otherwise all mutants would count as killed."""
        blank = Mutant(mutant.path, "nothing", len(text), len(text), "\n")
        outcome, killer = self._try(blank, text)
        if outcome != SURVIVED:
            raise BuildFailed(f"{mutant.path} is {outcome} {killer} without a change")

    def _judge(self, mutant: Mutant, text: str) -> None:
        outcome, killer = self._try(mutant, text)
        with self._lock:
            self._records.add(Result(mutant.key(text), outcome, killer, self._tests_digest))
            self._kills[mutant.path][killer] += 1
            self._outcomes[outcome] += 1
            self._show(mutant, text, outcome)

    def _try(self, mutant: Mutant, text: str) -> tuple[str, str]:
        worker = self._workers.get()
        worker.write(mutant.path, mutant.apply(text))
        try:
            return self._outcome(worker, mutant)
        finally:
            worker.write(mutant.path, text)
            self._workers.put(worker)

    def _outcome(self, worker: Worker, mutant: Mutant) -> tuple[str, str]:
        if not worker.builds("kivsdu"):
            return NOT_COMPILED, ""
        for test in self._in_turn(mutant.path):
            # A test that does not build has noticed the mutant, by a static assertion for example.
            if not worker.builds(test.name) or worker.kills(test):
                return KILLED, test.name
        return SURVIVED, ""

    def _in_turn(self, path: str) -> list[Test]:
        """First the tests that have killed most mutants of this source, then the fastest."""
        with self._lock:
            kills = self._kills[path].copy()
        return sorted(self._coverage.of(path), key=lambda test: (-kills[test.name], test.seconds))

    def _show(self, mutant: Mutant, text: str, outcome: str) -> None:
        done = sum(self._outcomes.values())
        left = (time.monotonic() - self._start) / done * (self._total - done) / 60
        if outcome == SURVIVED:
            print(f"\r\033[Ksurvived: {difference(mutant, text)}")
        print(
            f"\r\033[K[{done}/{self._total}] {self._outcomes[KILLED]} killed,"
            f" {self._outcomes[SURVIVED]} survived, {self._outcomes[NOT_COMPILED]} not compiled,"
            f" {left:.0f} min left, now {mutant.path}",
            end="",
        )
        sys.stdout.flush()
