"""Loads the printers and commands into gdb: "source debuggers/kivsdu_gdb.py"."""

import pathlib
import sys

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent))
import kivsdu_debug.in_gdb  # pylint: disable=wrong-import-position,unused-import
