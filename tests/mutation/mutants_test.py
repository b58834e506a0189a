"""Tests what is changed in a source, and which mutants a sample has."""

import sys
import unittest
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parents[2] / "tools"))

from mutation.mutants import mutants, sample  # noqa: E402

PATH = "sd/some.cpp"


def lines(text: str, operator: str) -> list[str]:
    """The changed lines of the mutants of one operator."""
    return [
        mutant.changed_lines(text)[1].strip()
        for mutant in mutants(PATH, text) if mutant.operator == operator
    ]  # fmt: skip


class Mutants(unittest.TestCase):
    def test_swap_each_comparison(self) -> None:
        self.assertEqual(lines("int F() {\n  return a <= b;\n}\n", "comparison"), ["return a < b;"])

    def test_add_one_to_numbers_of_every_base(self) -> None:
        text = "constexpr int kA = 9;\nconstexpr int kB = 0xF;\nconstexpr int kC = 0777;\n"
        self.assertEqual(lines(text, "constant"), [
            "constexpr int kA = 10;", "constexpr int kB = 16;", "constexpr int kC = 512;",
        ])  # fmt: skip

    def test_drop_checks_and_negate_conditions(self) -> None:
        text = "void F() {\n  if (IsFull(a)) return;\n}\n"
        self.assertEqual(lines(text, "dropped check"), ["if (false && (IsFull(a))) return;"])
        self.assertEqual(lines(text, "negated condition"), ["if (!(IsFull(a))) return;"])

    def test_drop_statements_and_exchange_neighbours(self) -> None:
        text = "void F() {\n  First();\n  second = 1;\n}\n"
        self.assertEqual(lines(text, "dropped statement"), [";", ";"])
        (order,) = [found for found in mutants(PATH, text) if found.operator == "order"]
        self.assertEqual(order.apply(text), "void F() {\n  second = 1;\n  First();\n}\n")

    def test_fix_choices(self) -> None:
        text = "int F() {\n  return a ? b : c;\n}\n"
        self.assertEqual(lines(text, "fixed choice"),
                         ["return a && false ? b : c;", "return a || true ? b : c;"])

    def test_leave_comments_texts_and_assertions_alone(self) -> None:
        for text in ("// 1 == 2\n", 'Name("a == 1");\n', "static_assert(sizeof(A) == 8);\n",
                     "std::atomic_thread_fence(order);\n", "#if A == 1\n#endif\n"):  # fmt: skip
            self.assertEqual(mutants(PATH, text), [], text)


class Samples(unittest.TestCase):
    def setUp(self) -> None:
        text = "".join(f"constexpr int k{number} = {number};\n" for number in range(1000))
        self.all = mutants(PATH, text)

    def test_have_their_part_of_a_source_in_its_order(self) -> None:
        chosen = sample(self.all, 10, "1")
        self.assertIn(len(chosen), (100, 101))
        self.assertEqual(chosen, sorted(chosen, key=lambda mutant: mutant.start))

    def test_are_in_each_larger_one(self) -> None:
        small, large = sample(self.all, 3, "1"), sample(self.all, 40, "1")
        self.assertLess(set(small), set(large))

    def test_of_small_sources_are_fair_together(self) -> None:
        total = sum(len(sample(self.all[:5], 10, str(seed))) for seed in range(1000))
        self.assertTrue(400 < total < 600, total)

    def test_of_all_are_all(self) -> None:
        self.assertEqual(sample(self.all, 100, "1"), self.all)


if __name__ == "__main__":
    unittest.main()
