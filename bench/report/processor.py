"""Names the kind of processor that measured, because ratios differ from kind to kind."""

from pathlib import Path

_FIELDS = ("vendor_id", "cpu family", "model")


def name(cpuinfo: str) -> str:
    """The maker, family and model in the text of /proc/cpuinfo, such as 'GenuineIntel 6 143'.

    The marketing name is of no use: virtual machines shorten it. A field that the text lacks is '?'.
    """
    values = {}
    for line in cpuinfo.splitlines():
        field, _, value = line.partition(":")
        values.setdefault(field.strip(), value.strip())
    return " ".join(values.get(field, "?") for field in _FIELDS)


def this_machine() -> str:
    return name(Path("/proc/cpuinfo").read_text())
