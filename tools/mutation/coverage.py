"""What a test program runs of the library: it is compiled to count, and writes profiles."""

import os
import subprocess
from pathlib import Path

from .linemap import Lines

# Continuous mode: what a killed process ran counts too. Processes that run at the same time add to
# different files.
PROFILES = "%c%4m.profraw"


def read(profiles: Path, image: Path, tree: Path) -> tuple[Lines, Lines]:
    """The lines of the sources below sd/ that ran, and all that the program or library has."""
    raw = sorted(profiles.glob("*.profraw"))
    merged = profiles / "merged.profdata"
    subprocess.run(["llvm-profdata", "merge", "-sparse", "-o", merged, *raw], check=True)
    report = subprocess.run(
        ["llvm-cov", "export", "-format=lcov", "-skip-expansions", f"-instr-profile={merged}",
         image],
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


def image(program: Path) -> Path:
    """Where the library's code is that a test runs: in the shared library, or in the program."""
    library = program.parent / "libkivsdu.so"
    return library if library.name.encode() in program.read_bytes() else program
