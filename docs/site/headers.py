"""Reads the public headers: families, constants, records, functions, and the comments of each.

The headers have one form, which clang-format and tools/check-headers keep. A comment begins in
column 0 and stands directly above what it describes; a group of declarations without blank lines
shares it. Inside a comment, a blank line separates blocks, and a block is one of

  parameters  "   name  text", each name a parameter of the group
  statuses    "0, or KIV_ST_ARGUMENT  text", then "      KIV_ST_...  text"
  table       any other lines that are indented
  text        everything else
"""
import dataclasses
import pathlib
import re

DECLARATION = re.compile(r"KIVSDU_API\s+([^;]+);")
NAME = re.compile(r"(\w+)\s*(?:\(|$)")
SECTION = re.compile(r"/\* ---- (.*?) ----", re.S)
DEFINE = re.compile(r"#define +((?:KIV|AD)_\w+)(\([^)]*\))? +(.*)")
STATUS = re.compile(
    r"^(?:0, or |      )?(KIV_[A-Z0-9_]+|0x[0-9A-F]+|0|1|another status)(?=  +\S|$)")
HELPERS = ("KIV_ASSERT_",)


@dataclasses.dataclass
class Function:
    name: str
    declaration: str  # without KIVSDU_API and ";"
    is_datum: bool

    @property
    def result(self):
        return re.split(rf"\b{self.name}\b", self.declaration)[0].strip()

    @property
    def parameters(self):
        if self.is_datum:
            return []
        inside = self.declaration[self.declaration.index("(") + 1:self.declaration.rindex(")")]
        return [re.search(r"(\.\.\.|\w+)$", one.strip()).group(1)
                for one in inside.split(",") if one.strip() != "void"]

    @property
    def takes_context(self):
        return bool(re.search(r"KivSdContext\s*\*", self.declaration.split("(", 1)[-1]))


@dataclasses.dataclass
class Block:
    kind: str  # "text", "parameters", "statuses" or "table"
    lines: list
    rows: list = dataclasses.field(default_factory=list)  # (name, text) of parameters and statuses


@dataclasses.dataclass
class Entry:
    """A comment and what it describes: functions, constants, a record or a type."""
    comment: str
    source: str = ""
    functions: list = dataclasses.field(default_factory=list)
    constants: list = dataclasses.field(default_factory=list)  # (name, value, meaning)
    types: list = dataclasses.field(default_factory=list)
    section: str = ""

    @property
    def blocks(self):
        parameters = {name for function in self.functions for name in function.parameters}
        return split_comment(self.comment, parameters)

    @property
    def statuses(self):
        return [row for block in self.blocks if block.kind == "statuses" for row in block.rows]


@dataclasses.dataclass
class Header:
    name: str
    overview: str
    entries: list


def uncomment(text):
    """The text of a comment, without its marks."""
    lines = text.strip().removeprefix("/*").removesuffix("*/").rstrip().split("\n")
    cleaned = [re.sub(r"^ \* ?", "", line).rstrip() for line in lines]
    cleaned[0] = cleaned[0].strip()
    return "\n".join(cleaned).strip("\n")


def chunks(text):
    """Splits a header into (comment, code) pairs in their order."""
    position, comment = 0, None
    pattern = re.compile(r"^/\*.*?\*/\n?", re.S | re.M)
    for match in pattern.finditer(text):
        if comment is not None or text[position:match.start()].strip():
            yield comment or "", text[position:match.start()]
        comment, position = match.group(0), match.end()
    yield comment or "", text[position:]


def read_functions(code):
    found = []
    for match in DECLARATION.finditer(code):
        declaration = " ".join(match.group(1).split())
        name = NAME.search(declaration).group(1)
        found.append(Function(name, declaration, "(" not in declaration))
    return found


def read_constants(code):
    found = {}  # by name: a constant can have a definition for each language
    lines = code.split("\n")
    for at, line in enumerate(lines):
        match = DEFINE.match(line)
        if not match or match.group(1).startswith(HELPERS) or match.group(2):
            continue
        value, meaning = match.group(3).strip(), ""
        if "/*" in value:
            value, meaning = value.split("/*", 1)
            while "*/" not in meaning:
                at += 1
                meaning += " " + lines[at].strip()
            meaning = " ".join(meaning.replace("*/", "").split())
        found[match.group(1)] = (match.group(1), value.strip(), meaning)
    return list(found.values())


def read_types(code):
    found = re.findall(r"^typedef struct (\w+) \{", code, re.M)
    found += re.findall(r"^typedef struct \w+ (\w+);", code, re.M)
    found += re.findall(r"^typedef [^;{]*\(\*(\w+)\)", code, re.M)
    found += re.findall(r"^typedef (?!struct)[^;({]*?(\w+);", code, re.M)
    return found


def own_code(code):
    """What the comment above the code describes: up to the first blank line that ends a group."""
    return re.sub(r"^KIV_ASSERT_\w+\(.*?\);\n?", "", code, flags=re.S | re.M)


def read(path):
    text = pathlib.Path(path).read_text(encoding="utf-8")
    overview, entries, section = "", [], ""
    for comment, code in chunks(text):
        if comment and not overview:
            overview = uncomment(comment)
            comment = ""
        if heading := SECTION.match(comment):
            section = " ".join(heading.group(1).replace(" * ", " ").split())
            comment = comment.replace(heading.group(0), "/*", 1)
        code = own_code(code)
        entry = Entry(uncomment(comment) if comment else "", code, read_functions(code),
                      read_constants(code), read_types(code), section)
        if entry.functions or entry.constants or entry.types or entry.comment:
            entries.append(entry)
    return Header(pathlib.Path(path).name, overview, entries)


def read_all(folder="include/kivsdu"):
    return {header.name: header for header in map(read, sorted(pathlib.Path(folder).glob("*.h")))}


def split_comment(comment, parameters=frozenset()):
    blocks = []
    for lines in paragraphs(comment):
        blocks += split_block(lines, parameters)
    return blocks


def paragraphs(comment):
    lines = []
    for line in comment.split("\n") + [""]:
        if line.strip():
            lines.append(line)
        elif lines:
            yield lines
            lines = []


def is_wide_table(lines):
    """A table with a header and three columns or more, such as that of the memory messages."""
    return len(lines) > 2 and not lines[0].startswith(" ") and len(
        re.findall(r"\S {2,}\S", lines[0])) > 1 and not STATUS.match(lines[0])


def split_block(lines, parameters):
    if is_wide_table(lines):
        return [Block("table", lines)]
    if STATUS.match(lines[0]):
        return split_statuses(lines)
    for at, line in enumerate(lines[1:], 1):  # a table may follow its introduction at once
        if STATUS.match(line) and not line.startswith("  "):
            return split_block(lines[:at], parameters) + split_statuses(lines[at:])
    rows = parameter_rows(lines, parameters)
    if rows:
        return [Block("parameters", lines, rows)]
    for at, line in enumerate(lines[1:], 1):
        if line.startswith("  ") != lines[0].startswith("  "):
            return [kind_by_indent(lines[:at])] + split_block(lines[at:], parameters)
    return [kind_by_indent(lines)]


def kind_by_indent(lines):
    return Block("table" if lines[0].startswith("  ") else "text", lines)


def parameter_rows(lines, parameters):
    rows = []
    for line in lines:
        match = re.match(r"^  ((?:[\w.]+, ?)*[\w.]+)  +(\S.*)$", line)
        if match and all(name.strip() in parameters for name in match.group(1).split(",")):
            rows.append([match.group(1), match.group(2)])
        elif rows and line.startswith("    "):
            rows[-1][1] += " " + line.strip()
        else:
            return []
    return rows


def split_statuses(lines):
    rows, last = [], 0
    for at, line in enumerate(lines):
        match = STATUS.match(line)
        if match:
            if line.startswith("0, or "):
                rows.append(["0", ""])
            rows.append([match.group(1), line[match.end():].strip()])
        elif line.startswith("        "):
            rows[-1][1] = (rows[-1][1] + " " + line.strip()).strip()
        else:
            break
        last = at
    found = [Block("statuses", lines[:last + 1], rows)]
    rest = lines[last + 1:]
    return found + (split_block(rest, frozenset()) if rest else [])


def exports(path="sd/kivsdu.def"):
    """The exported names, each with the function behind it, and the header that declares it."""
    found, header = {}, ""
    for line in pathlib.Path(path).read_text(encoding="utf-8").split("\n"):
        if match := re.match(r"; (\w+\.h)$", line):
            header = match.group(1)
        elif match := re.match(r"  (\w+)(?: = (\w+))?", line):
            found[match.group(1)] = (match.group(2) or match.group(1), header)
    return found
