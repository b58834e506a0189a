"""Which exports have a fault loop, and why the others have none."""
import pathlib
import re

ROOT = pathlib.Path(__file__).resolve().parent.parent.parent
FOLDER = ROOT / "tests/faults"
REASONS = FOLDER / "no_loops.txt"

NO_CALLS = "makes no call"
NO_FAILURE = "its calls cannot fail"

# A scenario begins with the operation's name; what follows an underscore tells several apart.
SCENARIO = re.compile(r'(?:\{|\b(?:Of|Once)\()\s*"((?:Kiv|ad)[A-Za-z0-9]+)(?:_\w+)?"')


def loops():
    """{export: the source of its fault loop}"""
    found = {}
    for path in sorted(FOLDER.glob("*_test.cpp")):
        for name in SCENARIO.findall(path.read_text()):
            found.setdefault(name, path)
    return found


def reasons():
    """{export: why it has none}; the names follow their reason, which stands in brackets."""
    found, reason = {}, None
    for line in REASONS.read_text().splitlines():
        if line.startswith("["):
            reason = line.strip("[]")
        elif not line.startswith("#"):
            found.update((name, reason) for name in line.split())
    return found


def faults(exports):
    """What is wrong: exports with neither, with both, and names that are no exports."""
    have, lack = set(loops()), set(reasons())
    for name in exports:
        if name not in have | lack:
            yield f"{name}: no fault loop, and no reason in {REASONS.name}"
        elif name in have & lack:
            yield f"{name}: {REASONS.name} has a reason, but there is a fault loop"
    for name in sorted((have | lack) - set(exports)):
        yield f"{name}: the fault loops or {REASONS.name} name it, but it is not exported"
