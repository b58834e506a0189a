"""Chooses, among the test cases, the one that shows a status or an exported function best."""

import re
from functools import cache

from testcases.programs import FAMILIES

# Calls that compare: those of GoogleTest, and those of the tests.
COMPARISON = re.compile(r"\b(?:EXPECT|ASSERT|CHECK)_\w+\(|\bExpect\w*\(")
PREFIX = re.compile(r"KIV_ST_|KIV_SDSYNC_|KivSd|Kiv|adMem|ad")
NOT_NAMES = {"get", "set", "file", "test", "is", "of"}
# In the name of a test about a failure.
FAILS = {"bad", "cannot", "denied", "fail", "fails", "failed", "failing", "failure", "limit",
         "missing", "not", "refuse", "refuses", "refused"}


def parts_of(name):
    """The words that a name is made of, in lower case."""
    return [part.lower() for part in re.findall(r"[A-Z]+(?![a-z])|[A-Z]?[a-z]+|\d+", name)]


def is_alike(one, other):
    """Whether two words are the same, or one has an ending: page and pages, open and opened."""
    shorter, longer = sorted((one, other), key=len)
    return one == other or (len(shorter) > 2 and longer.startswith(shorter))


@cache
def likeness(name, about):
    """How many of a name's words a test's name has, from 0 to 1; a common word counts little."""
    words = parts_of(PREFIX.sub("", name, count=1))
    weights = {word: 0.3 if word in NOT_NAMES else 1 for word in words}
    found = sum(weight for word, weight in weights.items()
                if any(is_alike(word, part) for part in parts_of(about)))
    return found / max(sum(weights.values()), 1)


def about(case):
    return f"{case.source.stem} {case.name}"


def in_brackets(text, start):
    """The text from `start`, behind a bracket, to the bracket that closes it."""
    depth = 1
    for place in range(start, len(text)):
        depth += {"(": 1, ")": -1}.get(text[place], 0)
        if depth == 0:
            return text[start:place]
    return text[start:]


@cache
def comparisons(text):
    """The words of each comparison."""
    return [frozenset(re.findall(r"\w+", in_brackets(text, found.end())))
            for found in COMPARISON.finditer(text)]


class Ranking:
    """The cases that run on a platform, with the words of their helpers."""

    def __init__(self, cases, platform, returned, exports):
        """`returned` has the operations that return a status: {status: operations}."""
        self.platform, self.returned, self.exports = platform, returned, frozenset(exports)
        self.cases = [case for case in cases if platform in case.platforms]
        helpers = {case: case.helpers(platform) for case in self.cases}
        self.reach = {case: case.words.union(*(helper.words for helper in helpers[case]))
                      for case in self.cases}

    def find(self, case_name, name):
        """The case of that name if it has the status or the export `name`, or None."""
        return next((case for case in self.cases
                     if case.name == case_name and name in self.reach[case]), None)

    def common(self, case):
        """What comes first among cases that are equally good."""
        return (case.source.parent.name not in FAMILIES, "GTEST_SKIP" in case.words,
                len(case.platforms) == 1)

    def depth_of_status(self, status, case):
        """0 for a comparison of what an operation returned, up to 5 for a mention in a helper."""
        returning = self.returned.get(status, set())
        with_status = [words for words in comparisons(case.text) if status in words]
        if any(returning & words for words in with_status):
            return 0
        is_reached = returning & self.reach[case]
        if with_status:
            return 1 if returning & case.words else 2 if is_reached else 4
        return 3 if is_reached else 5

    def for_status(self, status):
        """The case that shows that an operation returns a status, or None."""
        def key(case):
            others = {word for word in case.words if word.startswith("KIV_ST_")} - {status}
            is_failure = not FAILS.isdisjoint(parts_of(case.name))
            return (self.depth_of_status(status, case), *self.common(case),
                    -likeness(status, about(case)) - 0.3 * is_failure, len(others), case.order)

        return min((case for case in self.cases if status in self.reach[case]), key=key,
                   default=None)

    def for_export(self, name):
        """The case that is about an exported function and calls it, or None."""
        def key(case):
            is_called = name in case.words
            is_compared = any(name in words for words in comparisons(case.text))
            return (not is_called, *self.common(case), -likeness(name, about(case)),
                    not is_compared, len(case.words & self.exports), case.order)

        return min((case for case in self.cases if name in self.reach[case]), key=key,
                   default=None)
