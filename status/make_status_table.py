#!/usr/bin/env python3
"""Makes the table of statuses from the public headers.

    make_status_table.py HEADER_FOLDER --source FILE.c --page FILE.md

The comment above each status in status.h gives its meaning and, after "To do:", the advice. The
comment above an operation, or above a group of operations, lists the statuses that it returns, one
a line. The page is a table of all statuses for the documentation.

Fails if a status lacks a part, if an operation names an unknown status, or if the comment of an
operation that takes a context does not say what it returns.
"""

import argparse
import pathlib
import re
import sys

# Operations whose comment refers to the statuses of other operations.
REFERENCES = {
    "KivSdCountingEventClose": ["KivSdCntSemClose"],
    "KivSdCountingEventCreate": ["KivSdCntSemCreate"],
    "KivSdCountingEventSet": ["KivSdCntSemClear"],
    "KivSdCountingEventTimedWait": ["KivSdCntSemRequest"],
    "KivSdCountingEventWait": ["KivSdCntSemRequest"],
    "KivSdDirCreateEx": ["KivSdDirCreate"],
    "KivSdFileOpenExclusiveMode": ["KivSdFileOpen"],
    "KivSdFileSOpenExclusiveMode": ["KivSdFileSOpen"],
    "KivSdLeasedFilePWrite": ["KivSdFilePWrite", "KivSdGetWriteIOLease"],
    "KivSdLeasedFileWrite": ["KivSdFileWrite", "KivSdGetWriteIOLease"],
    "KivSdMMAPFileClose": ["KivSdFileClose"],
    "KivSdMMAPFileFlush": ["KivSdFileFlush"],
    "KivSdMMAPFileLSeek": ["KivSdFileLSeek"],
    "KivSdMMAPFileOpen": ["KivSdFileOpen", "KivSdFileSOpen"],
    "KivSdMMAPFilePRead": ["KivSdFilePRead"],
    "KivSdMMAPFilePWrite": ["KivSdFilePWrite"],
    "KivSdMMAPFileRead": ["KivSdFileRead"],
    "KivSdMMAPFileSetEndOfFile": ["KivSdFileSetEndOfFile"],
    "KivSdMMAPFileWrite": ["KivSdFileWrite"],
}

COMMENT = r"/\*((?:(?!\*/).)*)\*/\n"
STATUS = re.compile(COMMENT + r"#define (KIV_ST_\w+) (\d+)u\n", re.DOTALL)
GROUP = re.compile(COMMENT + r"((?:KIVSDU_API [^;]*;\n)+)", re.DOTALL)
DECLARATION = re.compile(r"KIVSDU_API ([\w ]+?[ *]+)(\w+)\(([^;]*)\);", re.DOTALL)
RETURNED = re.compile(
    r"^ \*\s+(?:0, or )?(KIV_ST_\w+)  +(?:\((\w+)\))?|[Aa]lways returns? (KIV_ST_\w+)",
    re.MULTILINE,
)
ADVICE = "To do:"


class Mistake(Exception):
    """A public header that the table cannot be made from."""


def plain(comment):
    """A comment's text on one line."""
    lines = (line.strip().removeprefix("*").strip() for line in comment.splitlines())
    return " ".join(line for line in lines if line)


def read_statuses(text):
    """Name -> (number, meaning, advice) of each status in status.h."""
    statuses = {}
    for comment, name, number in STATUS.findall(text):
        meaning, mark, advice = plain(comment).partition(ADVICE)
        if not mark or not meaning.strip() or not advice.strip():
            raise Mistake(f"status.h: the comment of {name} needs a meaning and '{ADVICE}' advice")
        statuses[name] = (int(number), meaning.strip(), advice.strip())
    defined = re.findall(r"^#define (KIV_ST_\w+)", text, re.MULTILINE)
    for name in sorted(set(defined) - set(statuses)):
        raise Mistake(f"status.h: {name} needs a comment directly above it")
    return statuses


def concerns(word, operation):
    """Whether "(word)" after a status means this operation: its name, or a word of its name."""
    parts = re.findall(r"[A-Z]+(?![a-z])|[A-Z]?[a-z]+", operation)
    return word == operation or word.lower() in (part.lower() for part in parts)


def read_group(comment, names):
    """Operation -> statuses, from the comment of a group of operations."""
    found = {name: set() for name in names}
    for listed, word, always in RETURNED.findall(comment):
        meant = [name for name in names if word and concerns(word, name)]
        for name in meant or names:
            found[name].add(listed or always)
    return found


def says_result(comment, declaration):
    """Whether the comment says what the operation returns, or there is no status to return."""
    kind, _, arguments = declaration
    takes_context = kind.strip() == "uint32_t" and "KivSdContext* ctx" in arguments
    return not takes_context or re.search(r"[Aa]lways returns?|[Rr]eturns 0", comment)


def read_operations(text, header):
    """Operation -> statuses, of one header."""
    operations = {}
    for comment, declarations in GROUP.findall(text):
        found = DECLARATION.findall(declarations)
        group = read_group(comment, [name for kind, name, _ in found if kind.strip() != "void"])
        for declaration in found:
            name = declaration[1]
            listed = group.get(name) or name in REFERENCES
            if not listed and not says_result(comment, declaration):
                raise Mistake(f"{header}: the comment of {name} does not say what it returns")
        operations.update(group)
    return operations


def read_headers(folder):
    """The statuses, and the operations with their statuses, of all headers."""
    statuses = read_statuses((folder / "status.h").read_text())
    operations = {}
    for header in sorted(folder.glob("*.h")):
        operations.update(read_operations(header.read_text(), header.name))
    for operation, others in REFERENCES.items():
        for other in others:
            if operation not in operations or not operations.get(other):
                raise Mistake(f"{operation} or {other}, listed in REFERENCES, has no statuses")
            operations[operation] |= operations[other]
    for operation, returned in operations.items():
        for name in sorted(returned - set(statuses)):
            raise Mistake(f"{operation} lists {name}, which status.h does not have")
    return statuses, operations


def sorted_rows(statuses, operations):
    """(number, name, meaning, advice, operations) of each status, by number."""
    for name, (number, meaning, advice) in sorted(statuses.items(), key=lambda item: item[1][0]):
        returning = sorted(o for o, returned in operations.items() if name in returned)
        yield number, name, meaning, advice, returning


def quote(text):
    """A C string literal."""
    return '"' + text.replace("\\", "\\\\").replace('"', '\\"') + '"'


def source(rows):
    """The table in C."""
    arrays, records = [], []
    for number, name, meaning, advice, returning in rows:
        array = "NULL"
        if returning:
            array = f"operationsOf{number}"
            names = ",\n  ".join(quote(operation) for operation in returning)
            arrays.append(f"static const char* const {array}[] = {{\n  {names}\n}};\n")
        records.append(
            f"  {{{number}u, {quote(name)},\n   {quote(meaning)},\n   {quote(advice)},\n"
            f"   {array}, {len(returning)}u}},\n"
        )
    return (
        "/* Made by make_status_table.py from the public headers. */\n"
        '#include "status_table.h"\n\n'
        + "\n".join(arrays)
        + "\nconst KivStatusInfo kivStatusTable[] = {\n"
        + "".join(records)
        + "};\nconst size_t kivStatusCount = sizeof(kivStatusTable) / sizeof(kivStatusTable[0]);\n"
    )


def page(rows):
    """The table in Markdown."""
    lines = [
        "# Statuses",
        "",
        "| status | name | meaning | what to do | returned by |",
        "|---|---|---|---|---|",
    ]
    for number, name, meaning, advice, returning in rows:
        names = ", ".join(f"`{operation}`" for operation in returning)
        lines.append(f"| {number} | `{name}` | {meaning} | {advice} | {names} |")
    return "\n".join(lines) + "\n"


def main():
    parser = argparse.ArgumentParser(description="Makes the table of statuses.")
    parser.add_argument("headers", type=pathlib.Path, help="the folder of the public headers")
    parser.add_argument("--source", type=pathlib.Path, required=True, help="the C file to write")
    parser.add_argument("--page", type=pathlib.Path, required=True, help="the page to write")
    options = parser.parse_args()
    try:
        rows = list(sorted_rows(*read_headers(options.headers)))
    except Mistake as mistake:
        sys.exit(f"make_status_table: {mistake}")
    options.source.write_text(source(rows))
    options.page.write_text(page(rows))


if __name__ == "__main__":
    main()
