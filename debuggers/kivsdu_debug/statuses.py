"""Names of statuses, read from the public header."""

import functools
import pathlib
import re

# Beside the sources, and installed.
HEADERS = ("../../include/kivsdu/status.h", "../../../../include/kivsdu/status.h")
DEFINITION = re.compile(r"#define (KIV_ST_\w+) (\d+)u$", re.MULTILINE)


@functools.lru_cache(maxsize=None)
def names():
    """The name of each status; empty if the header is not there."""
    here = pathlib.Path(__file__).resolve().parent
    for header in HEADERS:
        path = here / header
        if path.is_file():
            found = DEFINITION.findall(path.read_text(encoding="ascii"))
            return {int(number): name for name, number in found}
    return {}


def describe(status: int) -> str:
    """A status with its name."""
    name = names().get(status)
    return f"{name} ({status})" if name else f"status {status}"
