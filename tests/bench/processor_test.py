"""Tests the name of the processor."""

import sys
import unittest
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parents[2] / "bench"))

from report import processor  # noqa: E402

_TWO_PROCESSORS = """processor\t: 0
vendor_id\t: GenuineIntel
cpu family\t: 6
model\t\t: 143
model name\t: Some Name: of 2023

processor\t: 1
vendor_id\t: GenuineIntel
cpu family\t: 6
model\t\t: 1
"""


class Name(unittest.TestCase):
    def test_is_of_the_first_processor(self) -> None:
        self.assertEqual(processor.name(_TWO_PROCESSORS), "GenuineIntel 6 143")

    def test_has_a_mark_for_each_missing_field(self) -> None:
        self.assertEqual(processor.name("model : 3\n"), "? ? 3")

    def test_of_this_machine_is_found(self) -> None:
        self.assertRegex(processor.this_machine(), r"^\S+ \S+ \S+$")


if __name__ == "__main__":
    unittest.main()
