"""Compares what the printers and commands of the debuggers show with a file.

gdb looks at a running host and saves a core file. Then gdb, and lldb if it is installed, look at
the core file. All of them must show the lines of expected.txt.
"""

import argparse
import difflib
import itertools
import os
import pathlib
import re
import shutil
import subprocess
import sys
import tempfile

HERE = pathlib.Path(__file__).resolve().parent
CONFIGURATION = "numthreadheaps 4\nheapsize 512K\n"
LIMIT_SECONDS = 50

# What differs from run to run, or between debuggers.
VARYING = [
    (r"^\$\d+ = |^\([\w ]+\) \w+ = ", ""),
    (r"\bthread \d+", "thread ID"),
    (r"\(#\d+\)", "(#N)"),
    (r"0x[0-9a-f]+", "ADDRESS"),
    (r"(?<=header: 41 41 41 41 41 41 41 41 ).*", "..."),
    (r"descriptor \d+", "descriptor N"),
    (r"debugged-\d+", "debugged"),
]


def parse():
    """The arguments."""
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("design", choices=("words", "tickets"))
    parser.add_argument("--gdb", required=True)
    parser.add_argument("--lldb", default="")
    parser.add_argument("--cmake", required=True)
    parser.add_argument("--build", required=True, help="CMake's folder")
    parser.add_argument("--host", required=True, type=pathlib.Path)
    parser.add_argument("--debuggers", required=True, type=pathlib.Path,
                        help="the folder of the scripts")
    return parser.parse_args()


def modules_of(debugger):
    """The folder of lldb's modules, which Debian's lldb does not find by itself."""
    binary = pathlib.Path(shutil.which(debugger) or debugger).resolve()
    found = binary.parent.parent.glob("lib/python3*/*-packages/lldb/embedded_interpreter.py")
    return next((str(module.parent.parent) for module in found), "")


def run(command, folder, core):
    """The lines that a debugger's session prints."""
    # The debuggers' own Python looks for its modules beside the first python3 of the path.
    environment = dict(os.environ, PATH="/usr/sbin:/usr/bin:/sbin:/bin", KIV_CORE=str(core),
                       MOLTAPATH=str(folder), LC_ALL="C.UTF-8", PYTHONDONTWRITEBYTECODE="1",
                       PYTHONPATH=modules_of(command[0]))
    done = subprocess.run(command, env=environment, cwd=folder, text=True, check=False,
                          timeout=LIMIT_SECONDS, stdin=subprocess.DEVNULL,
                          stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
    return done.stdout


def normalise(text):
    """The session's lines without what differs from run to run."""
    start = text.find("KIV> ")
    lines = []
    for line in text[start:].splitlines() if start >= 0 else text.splitlines():
        for pattern, replacement in VARYING:
            line = re.sub(pattern, replacement, line)
        if line.strip():
            lines.append(line.rstrip())
    return sort_handles(summarise_thread_heaps(lines))


def sort_handles(lines):
    """Sorts neighbouring lines about handles: threads make some of them at the same time."""
    result = []
    for _, group in itertools.groupby(lines, lambda line: line.startswith("ADDRESS  ")):
        group = list(group)
        result += sorted(group) if group[0].startswith("ADDRESS  ") else group
    return result


def summarise_thread_heaps(lines):
    """Removes the number of blocks in thread heaps: which of them a thread uses is not fixed."""
    result = []
    title = ""
    for line in lines:
        if not line.startswith("  "):
            title = line
        if "thread heap" in title:
            line = re.sub(r" +\d+ blocks?, +\d+ bytes.*", " N blocks", line)
        result.append(line)
    return result


def expected_lines(design):
    """The lines of expected.txt. "words| " or "tickets| " begins a line for this design alone."""
    result = []
    for line in (HERE / "expected.txt").read_text(encoding="ascii").splitlines():
        only, bar, rest = line.partition("| ")
        if not bar:
            result.append(line)
        elif only == design:
            result.append(rest)
    return result


def compare(name, lines, expected):
    """Prints the differences; true if there are none."""
    differences = list(difflib.unified_diff(expected, lines, "expected", name, lineterm=""))
    print("\n".join(differences) if differences else f"{name}: {len(lines)} lines as expected")
    return not differences


def gdb_command(arguments):
    """gdb with the scripts under test."""
    return [arguments.gdb, "-nx", "-batch", "-iex", "set debuginfod enabled off",
            "-iex", "set width 0", "-x", f"{arguments.debuggers}/kivsdu_gdb.py"]


def look(arguments, folder):
    """The sessions, one after the other: name and lines."""
    core = folder / "core"
    host = str(arguments.host)
    gdb = [*gdb_command(arguments), "-x", str(HERE / "session.py")]
    yield "gdb, process", run(
        [*gdb, "--args", host, arguments.design, f"debugged-{os.getpid()}"], folder, core)
    if not core.exists():
        raise SystemExit("gdb could not save a core file")
    yield "gdb, core file", run([*gdb, host, str(core)], folder, core)
    if arguments.lldb:
        yield "lldb, core file", run(
            [arguments.lldb, "--no-lldbinit", "--batch", "-c", str(core),
             "-o", f"command script import {arguments.debuggers}/kivsdu_lldb.py",
             "-o", f"command script import {HERE / 'session.py'}", host], folder, core)


def look_without_symbols(arguments, folder):
    """Whether gdb says what to do if the library's debug symbols are not beside it."""
    copy = folder / "without-symbols"
    copy.mkdir()
    for file in (arguments.host, *arguments.host.parent.glob("libkiv*.so*")):
        shutil.copy(file, copy)
    shown = run([*gdb_command(arguments), "-ex", "set disable-randomization off",
                 "-ex", "break Settle", "-ex", "run", "-ex", "print lastContext", "-ex", "kiv-heap",
                 "-ex", "kiv-show stack",
                 "--args", str(copy / arguments.host.name), arguments.design,
                 f"without-symbols-{os.getpid()}"], folder, "")
    wanted = ("KIV_ST_SEM_TIMEOUT (1130404), OS error 258",
              "library are missing: the variable kiv::threadHeapCount",
              "library are missing: the type KivSdMemStack")
    missing = [text for text in wanted if text not in shown]
    print("without symbols: " + (f"not shown: {missing}\n{shown}" if missing else "as expected"))
    return not missing


def look_installed(arguments, folder):
    """Whether gdb loads the installed printers together with the library."""
    prefix = folder / "installed"
    for component in ("runtime", "development"):
        subprocess.run([arguments.cmake, "--install", arguments.build, "--prefix", str(prefix),
                        "--component", component], check=True, stdout=subprocess.DEVNULL)
    libraries = next(prefix.rglob("libkivsdu.so.0")).parent
    shutil.copy(arguments.host, libraries)
    shown = run([arguments.gdb, "-nx", "-batch", "-iex", "set debuginfod enabled off",
                 "-iex", f"set auto-load safe-path {prefix}", "-ex",
                 "set disable-randomization off", "-ex", "break Settle", "-ex", "run",
                 "-ex", "print lastContext", "--args", str(libraries / arguments.host.name),
                 arguments.design, f"installed-{os.getpid()}"], folder, "")
    succeeded = "$1 = KIV_ST_SEM_TIMEOUT (1130404), OS error 258" in shown
    print("installed: " + ("as expected" if succeeded else f"not loaded\n{shown}"))
    return succeeded


def main():
    """Runs the test."""
    arguments = parse()
    expected = expected_lines(arguments.design)
    succeeded = True
    with tempfile.TemporaryDirectory() as name:
        folder = pathlib.Path(name)
        (folder / "bin").mkdir()
        (folder / "bin" / "config.mem").write_text(CONFIGURATION, encoding="ascii")
        for session, shown in look(arguments, folder):
            lines = normalise(shown)
            succeeded = compare(session, lines, expected) and succeeded
        if arguments.design == "words":
            succeeded = look_without_symbols(arguments, folder) and succeeded
            succeeded = look_installed(arguments, folder) and succeeded
    return 0 if succeeded else 1


if __name__ == "__main__":
    sys.exit(main())
