"""What a test program runs of the library: it is compiled to count, and writes profiles."""

import os
import subprocess
from pathlib import Path

from .linemap import Lines

_LLVM = "-19"  # of the clang that compiles for it

# Processes that run at the same time add to different files.
PROFILES = "%4m.profraw"
COUNTED = b"__llvm_covmap"  # a section of each program or library with counted code


def read(profiles: Path, image: Path, tree: Path) -> tuple[Lines, Lines]:
    """The lines of the sources below sd/ that ran, and all that the program or library has."""
    raw = sorted(profiles.glob("*.profraw"))
    merged = profiles / "merged.profdata"
    subprocess.run(
        # A process that is killed while it writes leaves a file that cannot be read.
        ["llvm-profdata" + _LLVM, "merge", "-sparse", "-failure-mode=all", "-o", merged, *raw],
        check=True,
    )
    report = subprocess.run(
        ["llvm-cov" + _LLVM, "export", "-format=lcov", "-skip-expansions",
         f"-instr-profile={merged}", image],
        check=True, capture_output=True, text=True,
    ).stdout  # fmt: skip
    ran: Lines = {}
    code: Lines = {}
    source = None
    for line in report.splitlines():
        kind, _, rest = line.partition(":")
        if kind == "SF":
            name = os.path.relpath(os.path.realpath(rest), tree)
            source = name if name.startswith("sd/") else None
        elif kind == "DA" and source is not None:
            number, count = (int(field) for field in rest.split(",")[:2])
            code.setdefault(source, []).append(number)
            if count > 0:
                ran.setdefault(source, []).append(number)
    return ran, code


def image(program: Path) -> Path | None:
    """Where the library's code is that a test runs: in the shared library, or in the program. None
    if the test needs only the headers."""
    library = program.parent / "libkivsdu.so"
    content = program.read_bytes()
    if library.name.encode() in content:
        return library
    return program if COUNTED in content else None
