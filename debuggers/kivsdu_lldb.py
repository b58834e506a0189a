"""Loads the summaries and commands into lldb: "command script import debuggers/kivsdu_lldb.py"."""

import pathlib
import sys

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent))
# lldb finds functions by this module's name. pylint: disable=wrong-import-position,unused-import
from kivsdu_debug.in_lldb import (
    kiv_handle, kiv_heap, kiv_lock, kiv_show, register, summarise, summarise_handle)


def __lldb_init_module(debugger, _dictionary):
    register(debugger, __name__)
