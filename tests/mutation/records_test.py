"""Tests what is kept of mutants and of tests, and the report."""

import sys
import tempfile
import unittest
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parents[2] / "tools"))

from mutation.linemap import LineMap, Runs  # noqa: E402
from mutation.mutants import mutants  # noqa: E402
from mutation.records import (  # noqa: E402
    KILLED, SURVIVED, UNCERTAIN, Equivalents, Records, Result, Row, interval, report,
)  # fmt: skip

PATH = "sd/some.cpp"
TEXT = "int F() {\n  return a == b;\n}\nint G() {\n  return a < b;\n}\n"


class Files(unittest.TestCase):
    def setUp(self) -> None:
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = Path(folder.name)


class Kept(Files):
    def test_results_are_found_by_the_next_run(self) -> None:
        result = Result("key", SURVIVED, "", "digest")
        Records(self.folder / "results").add(result)
        self.assertEqual(Records(self.folder / "results").find("key"), result)
        self.assertIsNone(Records(self.folder / "results").find("other"))

    def test_tests_that_failed_or_changed_run_again(self) -> None:
        lines = LineMap(self.folder / "lines")
        lines.add("good", Runs("1", True, 1.0, 1.0, {}), {})
        lines.add("bad", Runs("1", False, 1.0, 1.0, {}), {})
        again = LineMap(self.folder / "lines")
        self.assertTrue(again.is_current("good", "1"))
        self.assertFalse(again.is_current("good", "2"))
        self.assertFalse(again.is_current("bad", "1"))
        self.assertFalse(again.is_current("new", "1"))


class Covering(Files):
    def setUp(self) -> None:
        super().setUp()
        self.lines = LineMap(self.folder / "lines")
        code = {PATH: [2, 5]}
        self.lines.add("first", Runs("1", True, 1.0, 1.0, {PATH: [2]}), code)
        self.lines.add("both", Runs("1", True, 1.0, 1.0, {PATH: [2, 5], "sd/b.cpp": [1, 2]}), code)
        self.lines.add("none", Runs("1", True, 1.0, 1.0, {"sd/b.cpp": [1]}), code)
        self.lines.add("fails", Runs("1", False, 1.0, 1.0, {PATH: [2, 5]}), code)
        self.lines.use({"first", "both", "none", "fails"})

    def test_are_the_tests_that_run_a_line(self) -> None:
        self.assertEqual(self.lines.covering(PATH, 2, 2), {"first", "both"})
        self.assertEqual(self.lines.covering(PATH, 4, 5), {"both"})

    def test_of_a_line_without_code_are_all_tests_of_the_source(self) -> None:
        self.assertEqual(self.lines.covering(PATH, 1, 1), {"first", "both"})

    def test_share_is_what_a_test_runs_there_of_all_it_runs(self) -> None:
        self.assertEqual(self.lines.share("first", PATH), 1)
        self.assertEqual(self.lines.share("both", PATH), 0.5)
        self.assertEqual(self.lines.share("none", PATH), 0)


class Reports(Files):
    def equivalents(self, text: str) -> Equivalents:
        (self.folder / "equivalent.toml").write_text(text)
        return Equivalents(self.folder / "equivalent.toml")

    def of_both(self, equivalents: Equivalents) -> str:
        comparisons = [found for found in mutants(PATH, TEXT) if found.operator == "comparison"]
        outcomes = zip(comparisons, (SURVIVED, KILLED))
        judged = [(found, Result("", outcome, "", "")) for found, outcome in outcomes]
        return report(judged, {PATH: TEXT}, equivalents, 200)

    def test_show_the_survivors(self) -> None:
        text = self.of_both(self.equivalents(""))
        self.assertIn("| all | 50.0 % | 1 | 0 | 1 | 0 | 0 |", text)
        self.assertIn("+  return a != b;", text)
        self.assertNotIn("a <= b", text)

    def test_do_not_count_equivalent_mutants(self) -> None:
        text = self.of_both(self.equivalents(
            f'[[mutant]]\nfile = "{PATH}"\nbefore = "return a == b;"\nafter = "return  a != b;"\n'
            'reason = "a test"\n'
        ))  # fmt: skip
        self.assertIn("| all | 100.0 % | 1 | 0 | 0 | 1 | 0 |", text)
        self.assertNotIn("a != b", text)

    def test_do_not_count_uncertain_mutants_as_killed(self) -> None:
        row = Row()
        for outcome in (KILLED, UNCERTAIN, SURVIVED, KILLED):
            row.add(outcome, False)
        self.assertEqual(row.text("all"), "| all | 50.0 % | 2 | 1 | 1 | 0 | 0 |")

    def test_interval_shrinks_with_the_sample(self) -> None:
        for row, part, bounds in (
            (Row(killed=95, survived=5), 0.0, (88.8, 97.8)),
            (Row(killed=950, survived=50), 0.0, (93.5, 96.2)),
            (Row(killed=95, survived=5), 0.9, (93.5, 96.2)),
            (Row(killed=95, survived=5), 1.0, (95.0, 95.0)),
            (Row(), 0.0, (0, 100)),
        ):
            for found, bound in zip(interval(row, part), bounds):
                self.assertAlmostEqual(found, bound, delta=0.06, msg=(row, part))


if __name__ == "__main__":
    unittest.main()
