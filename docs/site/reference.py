"""Writes the reference pages: one for each public header, the statuses, and the list of exports."""
import pathlib
import re

from headers import split_comment

FAMILIES = {
    "Frame": ("context.h", "status.h", "status_text.h", "settings.h", "vorutil.h", "version.h",
              "api.h"),
    "Locks": ("sync.h", "spinlock.h", "rwlock.h"),
    "Kernel objects and threads": ("semaphore.h", "mutex.h", "event.h", "thread.h"),
    "Memory": ("manager.h", "memory.h", "memusage.h", "shortheap.h", "memstack.h", "threadcache.h",
               "memtags.h", "numa.h"),
    "Between processes": ("segment.h", "sharedmem.h", "pipe.h"),
    "Files": ("file.h", "directio.h", "writepause.h", "mappedfile.h", "path.h", "filesearch.h",
              "fileflags.h"),
    "System": ("system.h", "time.h", "console.h", "module.h"),
}
GUARD = ("KivSdGetLeaseGuard", "KivSdIsFailoverMode")
HELPERS = ("KivSdMemClear", "KivSdMemCopy", "KIV_SDSYNC_BUSYSPIN_UPPERLIMIT")
PLATFORMS = {"windows-x64": "Windows", "linux-x64": "Linux"}
SUCCESS = "success"
MOST_NAMES = 40  # operations that are listed for a status
INCLUDE = pathlib.Path(__file__).resolve().parent.parent.parent / "include/kivsdu"
EMPTY = "\\ "


def cpp_headers():
    """The headers of the C++ layer, the two that hosts include first."""
    return sorted(INCLUDE.glob("*.hpp")) + sorted(INCLUDE.glob("cpp/*.hpp"))


def page_of(path):
    """The name of a header's page: event for event.h, cpp/error-hpp for cpp/error.hpp."""
    name = path.relative_to(INCLUDE).as_posix()
    return name.removesuffix(".h") if path.suffix == ".h" else name.replace(".", "-")


def escape(text):
    return re.sub(r"([\\*`_|<>])", r"\\\1", text)


def heading(text, mark):
    return [escape(text), mark * len(escape(text)), ""]


def indent(lines, by=3):
    return [(" " * by + line).rstrip() for line in lines]


def definitions(lines):
    """The rows of a table with two columns, names and texts; none for any other table."""
    first = re.match(r"^  (\S.*?)  +(?=\S)", lines[0])
    if not first:
        return []
    column, rows = first.end(), []
    for line in lines:
        name, text = line[:column].strip(), line[column:]
        aligned = text[:1].strip() and (not name or line[column - 2:column] == "  ")
        if not aligned or re.search(r"\S {2,}\S|[|]|->", name + " . " + text) or not (name or rows):
            return []
        if name:
            rows.append([name, text])
        else:
            rows[-1][1] += " " + text
    return rows


class Reference:
    def __init__(self, headers, calls, statuses, operations):
        """The last two are those of status/make_status_table.py: {name: (number, meaning, advice)}
        and {operation: statuses}."""
        self.headers, self.calls, self.statuses = headers, calls, statuses
        self.returned_by = {}
        for operation, returned in sorted(operations.items()):
            for status in returned:
                self.returned_by.setdefault(status, []).append(operation)
        self.functions = {function.name for _, _, function in self.all_functions()}
        self.constants = {name for header in headers.values() for entry in header.entries
                          for name, _, _ in entry.constants}
        self.types = {name for header in headers.values() for entry in header.entries
                      for name in entry.types}
        self.token = re.compile(r"\b(?:docs|examples)/[\w/]+\.\w+|\b\w+\.h\b|\b[A-Za-z_]\w*\b")

    def all_functions(self):
        for header in self.headers.values():
            for entry in header.entries:
                for function in entry.functions:
                    yield header, entry, function

    # ---- Text ----

    def link(self, word):
        if word in self.functions:
            return f":c:func:`{word}`" if word.startswith(("Kiv", "ad")) else f":c:var:`{word}`"
        if word in self.constants:
            return f":c:macro:`{word}`"
        if word in self.types:
            return f":c:type:`{word}`"
        if word in self.headers and word != "kivsdu.h":
            return f":doc:`{word} </reference/{word.removesuffix('.h')}>`"
        if re.fullmatch(r"docs/\w+\.md", word):
            return f":doc:`/{word.removesuffix('.md')}`"
        if re.fullmatch(r"examples/\w+\.(c|cpp)", word):
            return f":doc:`{word} </{word}>`"
        return escape(word)

    def inline(self, text):
        """Running text, with links to what it names. Between backquotes it is code."""
        pieces = text.split("`")
        for at, piece in enumerate(pieces):
            pieces[at] = f"``{piece}``" if at % 2 else self.linked(piece)
        return "".join(pieces)

    def linked(self, text):
        parts, position = [], 0
        for match in self.token.finditer(text):
            parts += [escape(text[position:match.start()]), self.separate(match, text)]
            position = match.end()
        return "".join(parts) + escape(text[position:])

    def separate(self, match, text):
        """A role needs a space or a mark of punctuation on both sides."""
        linked = self.link(match.group(0))
        if not linked.startswith(":"):
            return linked
        before, after = text[:match.start()][-1:], text[match.end():][:1]
        return ("\\ " if before and before not in " (\"'-/" else "") + linked + (
            "\\ " if after and after not in " )\"'.,:;!?-/" else "")

    def blocks(self, blocks):
        lines = []
        for block in blocks:
            make = getattr(self, "render_" + block.kind)
            lines += make(block) + [""]
        return lines

    def render_text(self, block):
        items = re.split(r"^- ", "\n".join(block.lines), flags=re.M)
        if len(items) > 1 and not items[0].strip():
            return ["* " + self.inline(" ".join(item.split())) for item in items[1:]]
        text = self.inline(" ".join(" ".join(block.lines).split()))
        for kind in ("Danger", "Compatibility"):
            if text.startswith(kind + ": "):
                rest = text[len(kind) + 2:]
                return [f".. admonition:: {kind}", f"   :class: {kind.lower()}", "",
                        "   " + rest[0].upper() + rest[1:]]
        return [text]

    def render_table(self, block):
        bullets = [line.strip() for line in block.lines]
        if all(line.startswith("- ") or block.lines[at].startswith("    ")
               for at, line in enumerate(bullets)) and bullets[0].startswith("- "):
            items = " ".join(bullets).split("- ")[1:]
            return ["* " + self.inline(item.strip()) for item in items]
        if bullets[0].startswith("1. "):
            items = re.split(r"(?:^| )\d\. ", " ".join(bullets))[1:]
            return ["#. " + self.inline(item.strip()) for item in items]
        rows = definitions(block.lines)
        if rows:
            lines = [".. list-table::", "   :widths: auto", "   :class: parameters", ""]
            for name, text in rows:
                lines += ["   * - " + self.inline(name), "     - " + self.inline(text)]
            return lines
        return ["::", ""] + indent(block.lines)

    def render_parameters(self, block):
        lines = [".. list-table::", "   :widths: auto", "   :class: parameters", ""]
        for name, text in block.rows:
            lines += [f"   * - ``{name}``", "     - " + (self.inline(text) or EMPTY)]
        return lines

    def render_statuses(self, block):
        lines = [".. list-table::", "   :widths: auto", "   :class: statuses", ""]
        for status, text in block.rows:
            shown = self.link(status) if status in self.constants else f"``{status}``"
            if status == "another status":
                shown = status
            text = self.inline(text) or (SUCCESS if status == "0" else "—")
            lines += [f"   * - {shown}", f"     - {text}"]
        return lines

    # ---- Entries ----

    def behind(self, function):
        """What the operation calls, on each platform."""
        found = self.calls[function.name]
        through = sorted({name for _, names in found.values() for name in names
                          if name not in GUARD + HELPERS})
        lines = []
        if not through and not any(system for system, _ in found.values()):
            return [":System: no call"]
        for platform, title in PLATFORMS.items():
            system = ", ".join(f"``{name}``" for name in found[platform][0])
            lines.append(f":{title}: {system or 'no call of the system'}")
        if through:
            lines.append(":calls: " + ", ".join(self.link(name) for name in through))
        if any(name in GUARD for _, names in found.values() for name in names):
            lines.append(":guard: the lease guard runs first in failover mode")
        return lines

    def same_calls(self, functions):
        groups = {}
        for function in functions:
            groups.setdefault("\n".join(self.behind(function)), []).append(function)
        return groups

    def function_entry(self, entry):
        data = [function for function in entry.functions if function.is_datum]
        operations = [function for function in entry.functions if not function.is_datum]
        lines = []
        for kind, functions in (("var", data), ("function", operations)):
            if not functions:
                continue
            signatures = [function.declaration for function in functions]
            head = f".. c:{kind}:: "
            lines.append(head + signatures[0])
            lines += [" " * len(head) + signature for signature in signatures[1:]]
            lines += [""] + indent(self.blocks(entry.blocks))
            for text, sharing in self.same_calls([] if kind == "var" else functions).items():
                if len(sharing) < len(functions):
                    names = ", ".join(f"``{function.name}``" for function in sharing)
                    lines += indent([f"{names}:", ""])
                lines += indent(text.split("\n")) + [""]
        return lines

    def type_entry(self, entry):
        lines = []
        for name in entry.types:
            is_record = re.search(rf"struct \w* ?\{{|struct {name}\b", entry.source)
            kind = "struct" if is_record else "type"
            lines += [f".. c:{kind}:: {name}", ""]
        lines += indent(self.blocks(entry.blocks))
        source = entry.source.strip("\n").split("\n")
        return lines + indent([".. code-block:: c", ""] + indent(source)) + [""]

    def constant_entry(self, entry):
        lines = self.blocks(entry.blocks)
        for name, value, meaning in entry.constants:
            lines += [f".. c:macro:: {name}", ""]
            text = f"``{value}``" + (f" — {self.inline(meaning)}" if meaning else "")
            lines += indent([text, ""])
        return lines

    def status_entry(self, entry):
        (name, _, _), = entry.constants
        number, meaning, advice = self.statuses[name]
        lines = [f".. c:macro:: {name}", ""]
        lines += indent([f"**{number}** — {self.inline(meaning)}", "",
                         f":to do: {self.inline(advice)}"])
        names = self.returned_by.get(name, [])
        if 0 < len(names) <= MOST_NAMES:
            lines += indent([":returned by: " + ", ".join(self.link(one) for one in names)])
        elif names:
            lines += indent([f":returned by: {len(names)} operations"])
        return lines + [""]

    def entry(self, header, entry):
        if header.name == "status.h" and len(entry.constants) == 1:
            return self.status_entry(entry)
        lines = []
        if entry.constants:
            lines += self.constant_entry(entry)
        if entry.types:
            lines += self.type_entry(entry)
        if entry.functions:
            lines += self.function_entry(entry)
        if not lines:
            lines = self.blocks(entry.blocks)
        return lines

    # ---- Pages ----

    def page(self, header):
        lines = heading(header.name, "=")
        lines += self.blocks(split_comment(header.overview))
        section = ""
        for entry in header.entries:
            if entry.section != section:
                section = entry.section
                lines += heading(self.short(section), "-")
            lines += self.entry(header, entry)
        return "\n".join(lines) + "\n"

    def source_page(self, path):
        """A page for a header that has no exports: its introduction and its text."""
        text = path.read_text(encoding="utf-8")
        first = re.match(r"(?://[^\n]*\n)+|/\*.*?\*/\n", text, re.S).group(0)
        body = text[len(first):].strip("\n").split("\n")
        comment = "\n".join(re.sub(r"^(// ?|/\* ?| \* ?)", "", line).removesuffix(" */")
                            for line in first.rstrip("\n").split("\n"))
        lines = heading(path.name, "=") + self.blocks(split_comment(comment))
        language = "cpp" if path.suffix == ".hpp" else "c"
        return "\n".join(lines + [f".. code-block:: {language}", ""] + indent(body)) + "\n"

    @staticmethod
    def short(section):
        return re.split(r"[:.;] ", section)[0]

    def index(self):
        lines = heading("Reference", "=")
        lines += ["The manual of every public header. Each operation has its arguments, its "
                  "statuses, and the calls of the system behind it.", "",
                  "Where Linux differs, :doc:`/docs/linux` says how. On Linux most operations make "
                  "further calls, which keep handles and names; only those that do the work are "
                  "shown. Calls that only report or handle a failure are left out.", ""]
        listed = [name for names in FAMILIES.values() for name in names]
        others = tuple(name for name in self.headers if name not in listed and
                       name != "kivsdu.h" and self.headers[name].entries)
        for family, names in {**FAMILIES, "Other headers": others}.items():
            if names:
                lines += heading(family, "-") + [".. toctree::", "   :maxdepth: 1", ""]
                lines += indent([name.removesuffix(".h") for name in names if name in self.headers])
                lines.append("")
        lines += heading("C++ layer", "-") + [".. toctree::", "   :maxdepth: 1", ""]
        lines += indent([page_of(path) for path in cpp_headers()]) + [""]
        lines += heading("Lists", "-") + [".. toctree::", "   :maxdepth: 1", "", "   exports", ""]
        return "\n".join(lines) + "\n"

    def exports_page(self):
        lines = heading("All exports", "=")
        lines += [f"The {len(self.functions)} exported names, and the calls of the system behind "
                  "each.", "", ".. list-table::", "   :header-rows: 1", "   :widths: auto",
                  "   :class: exports", "", "   * - export", "     - header", "     - Windows",
                  "     - Linux"]
        by_name = sorted(self.all_functions(), key=lambda found: found[2].name.lower())
        for header, _, function in by_name:
            calls = self.calls[function.name]
            cells = [self.link(function.name) if not function.is_datum
                     else f":c:var:`{function.name}`", self.link(header.name)]
            cells += [self.cell(calls[platform]) for platform in PLATFORMS]
            lines.append(f"   * - {cells[0]}")
            lines += [f"     - {cell}" for cell in cells[1:]]
        return "\n".join(lines) + "\n"

    def cell(self, found):
        system, through = found
        through = [name for name in through if name not in GUARD + HELPERS]
        shown = [f"``{name}``" for name in system] or [self.link(name) for name in through[:3]]
        return ", ".join(shown) or "—"
