"""Reads the lists of test programs: which sources they have, and on which platforms they run."""

import re

from testcases.sources import BOTH, OTHER, ROOT, Case, definitions_in

# Tests of the families, which come before others that show the same.
FAMILIES = ("frame", "memory", "locks", "kernel", "ipc", "files", "system")
# These tests go through all statuses or exports without producing or calling them.
LISTS = {"status_test.cpp", "status_text_test.cpp", "contract_test.cpp"}
COMMANDS = ("kiv_test(", "add_executable(")


def platform_of_condition(line):
    """The platform that an if() of CMake selects; None if it is about something else."""
    found = re.match(r"\s*if\((NOT )?(?:WIN32|CMAKE_CROSSCOMPILING)\b", line)
    return found and ("linux" if found[1] else "windows")


def commands(listing):
    """The test programs of a CMakeLists.txt: their arguments, and the platforms of the if()s."""
    conditions, loops = [], []
    lines = iter(listing.read_text().splitlines())
    for line in lines:
        word = line.strip()
        if word.startswith("if("):
            conditions.append(platform_of_condition(line))
        elif word.startswith("else("):
            conditions.append(OTHER.get(conditions.pop()))
        elif word.startswith("endif("):
            conditions.pop()
        elif word.startswith("foreach("):
            loops.append(word[len("foreach("):].rstrip(")").split())
        elif word.startswith("endforeach("):
            loops.pop()
        elif command := next((name for name in COMMANDS if word.startswith(name)), None):
            while ")" not in word:
                word += " " + next(lines).strip()
            arguments = word[len(command):word.index(")")]
            variable, *values = loops[-1] if loops else ("", "")
            for value in values:
                yield (arguments.replace(f"${{{variable}}}", value).split(),
                       set(filter(None, conditions)))


def sources_of(words):
    names = [name for name in words[1:] if name.endswith(".cpp")]
    return names if "SOURCES" in words or names else [words[0] + ".cpp"]


def all_cases():
    listings = [*(ROOT / "tests").rglob("CMakeLists.txt"),
                ROOT / "examples/cellhost/tests/CMakeLists.txt"]
    # The checked flavour has another library.
    listings = [path for path in listings if path.parent.name != "checked"]
    cases = []
    for listing in sorted(listings, key=lambda path: (path.parent.name not in FAMILIES, path)):
        for words, conditions in commands(listing):
            only = {words[words.index("ONLY") + 1]} if "ONLY" in words else set()
            platforms = frozenset((only | conditions) or BOTH)
            for name in sources_of(words):
                source = (listing.parent / name).resolve()
                if not source.exists() or source.name in LISTS:
                    continue
                cases += [Case(definition, platforms, len(cases))
                          for definition in definitions_in(source) if definition.suite]
    return cases
