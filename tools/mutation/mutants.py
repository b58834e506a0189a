"""Makes mutants of a C++ source: copies with one small change that a test should notice.

Works on the text, which clang-format has laid out: binary operators have spaces on both sides, and
template brackets have none. A mutant that does not compile costs little and is reported apart.
"""

import dataclasses
import hashlib
import random
import re
from collections.abc import Iterator


@dataclasses.dataclass(frozen=True)
class Mutant:
    """Replaces text[start:end] of the source at `path`."""

    path: str
    operator: str
    start: int
    end: int
    replacement: str

    def apply(self, text: str) -> str:
        return text[: self.start] + self.replacement + text[self.end :]

    def line(self, text: str) -> int:
        return text.count("\n", 0, self.start) + 1

    def changed_lines(self, text: str) -> tuple[str, str]:
        """The whole lines before and after."""
        first = text.rfind("\n", 0, self.start) + 1
        last = text.find("\n", self.end)
        after = text[first : self.start] + self.replacement + text[self.end : last]
        return text[first:last], after

    def key(self, text: str) -> str:
        change = f"{self.path}\0{self.start}\0{self.end}\0{self.replacement}\0{text}"
        return hashlib.sha256(change.encode()).hexdigest()[:20]


SWAPS = {
    "comparison": {"==": "!=", "!=": "==", "<": "<=", "<=": "<", ">": ">=", ">=": ">"},
    "arithmetic": {"+": "-", "-": "+", "*": "/", "/": "*", "%": "/"},
    "assignment": {"+=": "-=", "-=": "+=", "*=": "/=", "/=": "*=", "|=": "&=", "&=": "|=",
                   "<<=": ">>=", ">>=": "<<="},
    "bits": {"&": "|", "|": "&", "^": "|", "<<": ">>", ">>": "<<"},
    "logic": {"&&": "||", "||": "&&"},
}  # fmt: skip

# Text that mutants leave alone. Memory orders and fences change nothing that a test on this
# processor could see: the models and the thread sanitizer check them.
UNTOUCHED = re.compile(
    r"//[^\n]*|/\*.*?\*/|\"(?:\\.|[^\"\\\n])*\"|'(?:\\.|[^'\\\n])+'"
    r"|^\#[^\n]*(?:\\\n[^\n]*)*|\bstatic_assert\([^;]*;|\bnamespace [^\n]*"
    r"|\b(?:std::)?atomic_thread_fence\([^;]*;|\[\[[^\]]*\]\]|\balignas\([^)]*\)",
    re.S | re.M,
)
# A statement without a value: a call, a store, or an object that lives for its destructor.
STATEMENT = re.compile(
    r"(?:\*|\+\+|--|static_cast<void>\()?[A-Za-z_][\w:]*"
    r"(?:\(|\.|->|\[| [-+*/|&^]?= | <<= | >>= |\+\+|--|;)"
    r"|const \w*(?:Guard|Gate|Lock)\w* \w+[({;]"
    r"|\(\*?[^;]*?\)(?:\(| = )"
)
NO_STATEMENT = re.compile(r"(?:return|using|if|for|while|do|switch|case|default|else|goto|throw)\b")
NUMBER = re.compile(r"(?<![\w.'])(0x[0-9A-Fa-f]+|\d+)(?=[uUlLzZ]*(?![\w.']))")


def mutants(path: str, text: str) -> list[Mutant]:
    """All mutants of a source, in the order of its text."""
    masked = UNTOUCHED.sub(lambda match: re.sub(r"[^\n]", "\x01", match.group()), text)
    found = {
        (start, end, replacement): Mutant(path, operator, start, end, replacement)
        for make in (_operators, _counters, _numbers, _conditions, _statements)
        for operator, start, end, replacement in make(text, masked)
    }
    return sorted(found.values(), key=lambda mutant: (mutant.start, mutant.end, mutant.replacement))


def sample(found: list[Mutant], percent: float, seed: str) -> list[Mutant]:
    """Some mutants of a source, in the order of its text. Chance rounds their number."""
    choice = random.Random(seed)
    count = int(len(found) * percent / 100 + choice.random())
    shuffled = choice.sample(found, len(found))
    return sorted(shuffled[:count], key=found.index)


Change = tuple[str, int, int, str]


def _operators(_text: str, masked: str) -> Iterator[Change]:
    for operator, swaps in SWAPS.items():
        for match in re.finditer(r"(?<= )[-+*/%&|^<>=!]+(?=[ \n])", masked):
            if match.group() in swaps:
                yield operator, match.start(), match.end(), swaps[match.group()]


def _counters(_text: str, masked: str) -> Iterator[Change]:
    for match in re.finditer(r"\+\+|--", masked):
        yield "counter", match.start(), match.end(), "--" if match.group() == "++" else "++"


def _number(literal: str) -> int:
    is_octal = len(literal) > 1 and literal.isdigit() and literal[0] == "0"
    return int(literal, 8) if is_octal else int(literal, 0)


def _numbers(_text: str, masked: str) -> Iterator[Change]:
    for match in NUMBER.finditer(masked):
        number = _number(match.group(1))
        yield "constant", match.start(1), match.end(1), str(number + 1)
    for match in re.finditer(r"\b(true|false)\b", masked):
        yield "constant", *match.span(), "false" if match.group() == "true" else "true"


def _closing(masked: str, opening: int) -> int:
    """The position of the bracket that closes the one at `opening`."""
    depth = 0
    for position in range(opening, len(masked)):
        if masked[position] in "([{":
            depth += 1
        elif masked[position] in ")]}":
            depth -= 1
            if depth == 0:
                return position
    return len(masked) - 1


def _conditions(text: str, masked: str) -> Iterator[Change]:
    for match in re.finditer(r"\b(if|while) \(", masked):
        start = match.end()
        end = _closing(masked, start - 1)
        condition = text[start:end]
        if ";" in condition or re.search(r"[^=!<>]=[^=]", condition):
            continue
        if not re.search(r" [=!]= ", condition) or re.search(r" (&&|\|\|) ", condition):
            # Else it is the mutant of the comparison.
            yield "negated condition", start, end, f"!({condition})"
        if match.group(1) == "if":
            yield "dropped check", start, end, f"false && ({condition})"
    for match in re.finditer(r" \?(?=[ \n])", masked):
        for value in ("&& false", "|| true"):
            yield "fixed choice", match.start(), match.end(), f" {value} ?"


def _spans(masked: str) -> Iterator[tuple[int, int]]:
    """The statements that end with a semicolon, from their first character to behind it."""
    for match in re.finditer(r"(?<=[;{})\x01:])\n( +)(?=[^ \n\x01])|(?<=\)) (?=\S)", masked):
        start = match.end()
        if NO_STATEMENT.match(masked, start) or not STATEMENT.match(masked, start):
            continue
        depth = 0
        for end in range(start, len(masked)):
            depth += (masked[end] in "([{") - (masked[end] in ")]}")
            if depth < 0 or masked[end] == "\x01":
                break
            if depth == 0 and masked[end] == ";":
                yield start, end + 1
                break


def _statements(text: str, masked: str) -> Iterator[Change]:
    spans = list(_spans(masked))
    for start, end in spans:
        yield "dropped statement", start, end, ";"
    for (first, first_end), (second, second_end) in zip(spans, spans[1:]):
        between = text[first_end:second]
        if between.strip() or text[first:first_end].startswith("const "):
            continue
        swapped = text[second:second_end] + between + text[first:first_end]
        yield "order", first, second_end, swapped
    for match in re.finditer(r"\b(?:break|continue);", masked):
        yield "dropped statement", match.start(), match.end(), ";"
