"""Reads the library's structures in a process or a core file, for any debugger.

process.py     what the debugger has to offer, and records in its memory
statuses.py    names of statuses
heaps.py       walks arenas
locks.py       who holds a lock and who waits for it
handles.py     kernel objects of the Linux library
summaries.py   one line for each structure
commands.py    the texts of the commands
constants.py   constants of the sources
in_gdb.py      gdb, and what it shows
in_lldb.py     lldb, and what it shows
"""
