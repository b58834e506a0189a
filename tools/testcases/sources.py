"""Reads the tests' sources: their cases, and the definitions that the cases use."""

import re
from functools import cache
from pathlib import Path

ROOT = Path(__file__).resolve().parent.parent.parent
TESTS = ROOT / "tests"
PLATFORMS = {"windows": "Windows", "linux": "Linux"}
BOTH = frozenset(PLATFORMS)
OTHER = {"windows": "linux", "linux": "windows"}

COMMENT_OR_STRING = re.compile(
    r"//[^\n]*|/\*.*?\*/|" r'R"(\w*)\(.*?\)\1"|"(?:\\.|[^"\\\n])*"', re.DOTALL
)
QUOTED = re.compile(r'R"(\w*)\(.*?\)\1"|"(?:\\.|[^"\\\n])*"|' r"'(?:\\.|[^'\\])'", re.DOTALL)
CASE = re.compile(r"(?:TEST|TEST_F|TEST_P)\((\w+),\s*(\w+)\)")
# What a definition at the start of a line defines.
DEFINED = (
    re.compile(r"INSTANTIATE_TEST_SUITE_P\(\w*,\s*(\w+)"),
    re.compile(r"#\s*define (\w+)"),
    re.compile(r"(?:template [^{]*> )?(?:class|struct|union|enum(?: class)?) (\w+)[^;(]*\{"),
    re.compile(r"using (\w+) ="),
    re.compile(r"[^(={\[;]*?(\w+)\s*[(={\[;]"),
)


def words_of(text):
    return frozenset(re.findall(r"\w+", text))


def without_comments(text):
    return COMMENT_OR_STRING.sub(lambda found: "" if found[0][0] == "/" else found[0], text)


def is_complete(lines):
    """Whether the lines are a whole definition: every bracket is closed."""
    text = QUOTED.sub("", "\n".join(lines)).rstrip()
    if text.startswith("#"):
        return not text.endswith("\\")
    closed = all(text.count(opening) == text.count(end) for opening, end in ("()", "{}"))
    return closed and text.endswith((";", "}", ")"))


def platforms_inside(line, conditions):
    """Keeps the stack of #if platforms; returns whether the line was a condition."""
    if re.match(r"#\s*if", line):
        found = re.match(r"#\s*if(n?)def _WIN32", line)
        conditions.append(found and ("linux" if found[1] else "windows"))
    elif re.match(r"#\s*else", line):
        conditions.append(OTHER.get(conditions.pop()))
    elif re.match(r"#\s*endif", line):
        conditions.pop()
    else:
        return False
    return True


class Definition:
    """A test case, or a helper: function, table, class or macro."""

    def __init__(self, source, text, platforms):
        self.source, self.text, self.platforms = source, text, platforms
        self.words = words_of(text)
        case = CASE.match(text)
        self.suite = case and case[1]
        self.name = f"{case[1]}.{case[2]}" if case else self.defined_name()

    def defined_name(self):
        head = self.text
        while (shorter := re.sub(r"<[^<>(;]*>", "", head, count=1)) != head:
            head = shorter
        return next((found[1] for kind in DEFINED if (found := kind.match(head))), "")


@cache
def definitions_in(source):
    """The definitions that begin at the start of a line, outside and inside of namespaces."""
    found, lines, conditions = [], [], []
    for line in without_comments(source.read_text()).splitlines():
        if not lines:
            if platforms_inside(line, conditions):
                continue
            if not re.match(r"[\w:~\[]|#\s*define", line) or re.match(r"namespace|extern", line):
                continue
        lines.append(line)
        if is_complete(lines):
            platforms = BOTH
            for platform in filter(None, conditions):
                platforms &= {platform}
            found.append(Definition(source, "\n".join(lines), platforms))
            lines = []
    return found


@cache
def support_of(source):
    """The shared sources of the tests that a source includes, directly or not."""
    found = []
    for name in re.findall(r'^#include "((?:support|model)/\w+)\.h"', source.read_text(), re.M):
        folder, stem = name.split("/")
        beside = [TESTS / f"{name}.h", TESTS / f"{name}.cpp"]
        bindings = [TESTS / folder / system / f"{stem}.cpp" for system in ("w32", "lnx")]
        for path in (path for path in beside + bindings if path.exists()):
            found += [path, *(support_of(path) if path.suffix == ".h" else [])]
    return list(dict.fromkeys(found))


class Case:
    """A test case with the helpers that it uses, by their distance from it."""

    def __init__(self, definition, platforms, order):
        self.name, self.suite, self.source = definition.name, definition.suite, definition.source
        self.text, self.words, self.order = definition.text, definition.words, order
        self.platforms = platforms & definition.platforms

    def __str__(self):
        return f"[{self.name}]({Path('..') / self.source.relative_to(ROOT)})"

    def helpers(self, platform):
        """The helpers that the case uses, directly or not."""
        by_name = {}
        for source in [self.source, *support_of(self.source)]:
            if source.parent.name == {"windows": "lnx", "linux": "w32"}[platform]:
                continue
            for definition in definitions_in(source):
                if definition.suite is None and platform in definition.platforms:
                    by_name.setdefault(definition.name, []).append(definition)
        used, words = {}, self.words | {self.suite}
        while fresh := [name for name in words if name in by_name and name not in used]:
            used |= {name: by_name[name] for name in fresh}
            words = frozenset().union(
                *(helper.words for name in fresh for helper in by_name[name])
            )
        return [helper for helpers in used.values() for helper in helpers]
