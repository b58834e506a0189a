"""Tests how the report of the benchmarks reads their results."""

import json
import sys
import tempfile
import unittest
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parents[2] / "bench"))

from report import results  # noqa: E402


def aggregate(name: str, kind: str, **values: float) -> dict:
    """A measurement as Google Benchmark writes it."""
    return {"run_name": name, "name": f"{name}_{kind}", "aggregate_name": kind, "time_unit": "us",
            "real_time": 2.0, "cpu_time": 1.0, "iterations": 7, **values}


def rows_of(*measurements: dict) -> list[results.Row]:
    with tempfile.TemporaryDirectory() as folder:
        path = Path(folder, "some_bench@pair.json")
        path.write_text(json.dumps({"benchmarks": measurements}))
        return results.read_file(path, "linux")


class Names(unittest.TestCase):
    def test_name_the_workload_and_the_contender(self) -> None:
        for name, expected in {
            "Mutex": ("Mutex", "library"),
            "MutexRaw": ("Mutex", "raw"),
            "Read/4096": ("Read 4096", "library"),
            "pair/thread heap/64": ("pair 64", "thread heap"),
            "cross-thread/mimalloc/2/real_time": ("cross-thread 2", "mimalloc"),
            "Alone<Spinlock<kTickets>>": ("Alone", "Spinlock<kTickets>"),
            "Contended<RwLock>/threads:2/work:0/iterations:1/manual_time":
                ("Contended threads:2 work:0", "RwLock"),
        }.items():
            with self.subTest(name):
                self.assertEqual(results.workload_and_contender(name), expected)


class Files(unittest.TestCase):
    def test_give_the_median_and_the_spread(self) -> None:
        rows = rows_of(aggregate("Mutex", "mean", real_time=9.0), aggregate("Mutex", "median"),
                       aggregate("Mutex", "cv", real_time=0.25))
        self.assertEqual(rows, [results.Row("linux", "some_bench", "Mutex", "library", 2000.0, 0.25)])

    def test_give_a_row_for_each_counter_of_a_contender(self) -> None:
        rows = rows_of(aggregate("Read/1", "median", library=5.0, raw=4.0, added=1.0),
                       aggregate("Read/1", "cv", library=0.5, raw=0.1, added=3.0))
        self.assertEqual([(row.contender, row.nanoseconds, row.spread) for row in rows],
                         [("library", 5.0, 0.5), ("raw", 4.0, 0.1)])

    def test_may_be_empty(self) -> None:
        with tempfile.TemporaryDirectory() as folder:
            path = Path(folder, "some_bench.json")
            path.write_text("")
            self.assertEqual(results.read_file(path, "linux"), [])


if __name__ == "__main__":
    unittest.main()
