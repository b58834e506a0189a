"""Tests the comparison of measurements with a baseline."""

import sys
import unittest
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parents[2] / "bench"))

from report import gate  # noqa: E402
from report.results import Row  # noqa: E402


def row(contender: str, nanoseconds: float, workload: str = "pair 64") -> Row:
    return Row("linux", "some_bench", workload, contender, nanoseconds, 0.0)


class Ratios(unittest.TestCase):
    def test_compare_with_the_best_other(self) -> None:
        rows = [row("thread heap", 20.0), row("mimalloc", 12.0), row("jemalloc", 10.0)]
        self.assertEqual(gate.ratios(rows), {"linux/some_bench/pair 64/thread heap": 0.5})

    def test_compare_with_limits_too(self) -> None:
        self.assertEqual(gate.ratios([row("library", 8.0, "Read"), row("raw", 6.0, "Read")]),
                         {"linux/some_bench/Read/library": 0.75})

    def test_take_the_fastest_process_of_each(self) -> None:
        rows = [row("thread heap", 40.0), row("mimalloc", 10.0), row("thread heap", 20.0),
                row("mimalloc", 12.0), row("thread heap", 25.0)]
        self.assertEqual(gate.ratios(rows), {"linux/some_bench/pair 64/thread heap": 0.5})

    def test_leave_out_what_only_the_library_has(self) -> None:
        self.assertEqual(gate.ratios([row("library", 8.0), row("mimalloc", 1.0, "other")]), {})


class Medians(unittest.TestCase):
    def test_are_taken_of_all_runs(self) -> None:
        self.assertEqual(gate.medians([{"a": 3.0}, {"a": 1.0}, {"a": 2.0}]), {"a": 2.0})

    def test_need_the_name_in_every_run(self) -> None:
        self.assertEqual(gate.medians([{"a": 3.0, "b": 1.0}, {"a": 1.0}]), {"a": 2.0})

    def test_of_no_run_are_empty(self) -> None:
        self.assertEqual(gate.medians([]), {})


class Baseline(unittest.TestCase):
    def test_is_compared_for_the_measured_platforms(self) -> None:
        self.assertEqual(gate.of_platforms({"linux/a": 1.0, "windows/a": 2.0}, {"linux/b": 3.0}),
                         {"linux/a": 1.0})

    def test_is_replaced_for_the_measured_platforms(self) -> None:
        self.assertEqual(gate.replaced({"linux/a": 1.0, "linux/b": 1.0, "windows/a": 2.0},
                                       {"linux/b": 3.00049}),
                         {"linux/b": 3.0, "windows/a": 2.0})


class Losses(unittest.TestCase):
    def test_begin_below_nine_tenths(self) -> None:
        self.assertEqual(gate.losses({"a": 0.9}, {"a": 1.0}), [])
        self.assertEqual(gate.losses({"a": 0.89}, {"a": 1.0}), ["a: 0.89 instead of 1.00"])

    def test_include_what_was_not_measured(self) -> None:
        self.assertEqual(gate.losses({}, {"a": 1.0}), ["a: not measured"])

    def test_ignore_what_the_baseline_lacks(self) -> None:
        self.assertEqual(gate.losses({"b": 0.1}, {}), [])


if __name__ == "__main__":
    unittest.main()
