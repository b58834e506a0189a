"""Reads tests/edge_cases.txt, and finds the test cases that it names."""

from testcases.sources import PLATFORMS, TESTS

FILE = TESTS / "edge_cases.txt"


class EdgeCase:
    """A sentence, the names of the cases that show it, and why a platform has none."""

    def __init__(self, sentence):
        self.sentence, self.names, self.reasons = sentence, [], {}

    def add(self, line):
        platform, colon, reason = line.partition(": ")
        if colon and platform in PLATFORMS:
            self.reasons[platform] = reason
        else:
            self.names += line.split()

    def cell(self, platform, by_name):
        """What the table says of a platform; empty if there is neither a case nor a reason."""
        cases = [case for name in self.names for case in by_name.get(name, ())
                 if platform in case.platforms]
        return ", ".join(map(str, cases)) or self.reasons.get(platform, "")

    def faults(self, by_name):
        """What is wrong with the names and the reasons."""
        for name in self.names:
            if name not in by_name:
                yield f"there is no test case {name}"
        for platform in PLATFORMS:
            runs = any(platform in case.platforms for name in self.names
                       for case in by_name.get(name, ()))
            if runs == (platform in self.reasons):
                yield (f"{platform} has a test and a reason for having none" if runs else
                       f"{platform} has no test; name one, or add a line '{platform}: REASON'")


def read():
    """{area: edge cases}; the file says what its lines mean."""
    areas = {}
    for line in FILE.read_text().splitlines():
        if line.startswith("# "):
            areas[line[2:]] = edges = []
        elif line.startswith(" "):
            edges[-1].add(line.strip())
        elif line and not line.startswith("//"):
            edges.append(EdgeCase(line))
    return areas
