#!/usr/bin/env python3
"""Makes the documentation site from the public headers and the documents.

make_site.py OUTPUT BUILD_WINDOWS BUILD_LINUX, all below the project's folder

Fails if an export has no entry in a public header, or an entry says nothing about the result; if
principal_calls.txt or the kind of an OS error disagrees with the objects of the builds; and if a
link leads nowhere.
"""
import html.parser
import os
import pathlib
import re
import shutil
import subprocess
import sys
import urllib.parse

SITE = pathlib.Path(__file__).resolve().parent
ROOT = SITE.parent.parent
sys.path.insert(0, str(SITE))
sys.dont_write_bytecode = True
import headers  # noqa: E402
import platform_calls  # noqa: E402
import reference  # noqa: E402
sys.path.insert(0, str(ROOT / "status"))
import make_status_table  # noqa: E402

TOP = ("README.md", "CONTRIBUTING.md", "SECURITY.md", "CHANGELOG.md", "sd/README.md",
       "examples/cellhost/README.md", "packaging/README.md")
BESIDE = (".svg", ".png", ".html")  # files beside the documents, which links may name
FETCHED = re.compile(r'<(?:script|link|img)\b[^>]*(?:src|href)="(?:https?:)?//[^"]*"')
LINK = re.compile(r"(!?)\[([^\]]*)\]\(([^)\s]+)\)")


def documents():
    found = [ROOT / name for name in TOP]
    found += [path for path in sorted((ROOT / "docs").rglob("*.md"))
              if path != ROOT / "docs/README.md" and SITE not in path.parents]
    return found


def examples():
    return sorted((ROOT / "examples").glob("*.c*"))


def target_of(document, link):
    """What a link of a document leads to on the site; None if the site has no page for it."""
    path, _, anchor = link.partition("#")
    if not path or "://" in link:
        return link
    file = pathlib.Path(os.path.normpath(document.parent / path))
    anchor = f"#{anchor}" if anchor else ""
    if file in documents() or file.suffix in BESIDE:
        return link
    if file in examples():
        return f"{path}.md{anchor}"
    special = {ROOT / "include/kivsdu": "reference/index.rst", ROOT / "docs/README.md": "index.md",
               ROOT / "examples": "docs/examples.md"}
    if file.is_relative_to(reference.INCLUDE) and file.suffix in (".h", ".hpp"):
        special[file] = f"reference/{reference.page_of(file)}.rst"
    if file in special:
        return os.path.relpath(special[file], document.parent.relative_to(ROOT))
    return None


# kivsdu.h includes the others; the functions of status_text.h are in a library of their own.
STATIC = "status_text.h"
ALL_AND_STATIC = ("kivsdu.h", STATIC)
NAME = re.compile(r"(?<![\[`])`(\w+(?:\.h)?)`(?!`)")


class Names:
    """The names of the reference, for links from the documents."""

    def __init__(self, read):
        self.roles = {f"{name}": f"{{doc}}`{name} </reference/{name.removesuffix('.h')}>`"
                      for name in read if name != "kivsdu.h"}
        for header in read.values():
            for entry in header.entries:
                self.roles.update({function.name: f"{{c:func}}`{function.name}`"
                                   for function in entry.functions if not function.is_datum})
                self.roles.update({name: f"{{c:macro}}`{name}`" for name, _, _ in entry.constants})
                self.roles.update({name: f"{{c:type}}`{name}`" for name in entry.types})

    def link(self, text):
        return NAME.sub(lambda match: self.roles.get(match.group(1), match.group(0)), text)


def rewrite(document, names):
    """The document's text with links for the site. A link to what it does not have becomes text."""
    def replace(match):
        mark, text, link = match.groups()
        target = target_of(document, link)
        if target is None:
            return text
        return f"{mark}[{text}]({target})"
    text = document.read_text(encoding="utf-8")
    parts = re.split(r"(^```.*?^```$)", text, flags=re.S | re.M)
    return "".join(part if part.startswith("```") else names.link(LINK.sub(replace, part))
                   for part in parts)


def write(path, text):
    path.parent.mkdir(parents=True, exist_ok=True)
    path.write_text(text, encoding="utf-8")


def with_numbers(text):
    """Puts the numbers of the tree where a document has a place for them."""
    numbers = subprocess.run([str(ROOT / "tools/count-tests")], capture_output=True, text=True,
                             check=True).stdout
    return re.sub(r"<!-- numbers -->.*<!-- end of numbers -->", lambda _: numbers, text, flags=re.S)


def stage_documents(stage, names):
    for document in documents():
        text = rewrite(document, names)
        write(stage / document.relative_to(ROOT),
              with_numbers(text) if "<!-- numbers -->" in text else text)
    for path in (ROOT / "docs").rglob("*"):
        if path.suffix in BESIDE:
            copy = stage / path.relative_to(ROOT)
            copy.parent.mkdir(parents=True, exist_ok=True)
            shutil.copyfile(path, copy)
    for example in examples():
        text = example.read_text(encoding="utf-8")
        language = "c" if example.suffix == ".c" else "cpp"
        write(stage / f"{example.relative_to(ROOT)}.md",
              f"# {example.name}\n\n```{language}\n{text}```\n")
    for name in ("index.md", "docs/examples.md"):
        shutil.copyfile(SITE / "pages" / pathlib.Path(name).name, stage / name)
    shutil.copyfile(SITE / "conf.py", stage / "conf.py")
    shutil.copytree(SITE / "static", stage / "_static")


def undocumented(read, exports):
    """Complaints about exports without an entry, or with an entry that is silent on the result."""
    entries = {function.name: (entry, function) for header in read.values()
               for entry in header.entries for function in entry.functions}
    for name in exports:
        if name not in entries:
            yield f"{name} is exported and has no entry in a public header"
            continue
        entry, function = entries[name]
        text = " ".join(entry.comment.split())
        says = entry.statuses or function.is_datum or function.result == "void" or re.search(
            r"[Rr]eturns?\b|Computes|KivSd\w+ (?:of|with)|[Ss]tatus|[Aa]rguments|adMemSet", text)
        if not text or not says:
            yield f"{name}: the comment does not say what it returns"
    for name in set(entries) - set(exports):
        yield f"{name} is declared and not exported"


def kinds_said(read):
    """{operation: the kinds that the line "OS error" of its comment names}"""
    said = {}
    for header in read.values():
        for entry in header.entries:
            line = re.search(r"^OS error: (.*)", entry.comment, re.M)
            kinds = set(re.findall(r"GetLastError|errno", line.group(1))) if line else set()
            said.update({function.name: kinds for function in entry.functions if kinds})
    return said


def stage_reference(stage, read, builds):
    exports = headers.exports(ROOT / "sd/kivsdu.def")
    complaints = list(undocumented(read, exports))
    chosen = platform_calls.principal(SITE / "principal_calls.txt")
    graphs = {platform: platform_calls.Graph(build) for platform, build in builds.items()}
    calls, wrong = platform_calls.all_calls(exports, graphs, chosen)
    complaints += wrong
    complaints += platform_calls.wrong_kinds(kinds_said(read), exports, graphs["windows-x64"])
    if complaints:
        raise SystemExit("".join(f"make_site: {complaint}\n" for complaint in complaints))
    pages = reference.Reference(read, calls, *make_status_table.read_headers(reference.INCLUDE))
    for header in read.values():
        if header.name not in ALL_AND_STATIC:
            write(stage / "reference" / f"{header.name.removesuffix('.h')}.rst", pages.page(header))
    for path in [reference.INCLUDE / STATIC, *reference.cpp_headers()]:
        write(stage / "reference" / f"{reference.page_of(path)}.rst", pages.source_page(path))
    write(stage / "reference/index.rst", pages.index())
    write(stage / "reference/exports.rst", pages.exports_page())
    return len(exports)


class Page(html.parser.HTMLParser):
    def __init__(self, text):
        super().__init__()
        self.links, self.anchors = [], set()
        self.feed(text)

    def handle_starttag(self, tag, attributes):
        for name, value in attributes:
            if name in ("id", "name") and value:
                self.anchors.add(value)
            elif name in ("href", "src") and value:
                self.links.append(value)


def dead_links(site):
    """Complaints about links that lead nowhere, and about parts that come from the network."""
    pages = {path: Page(path.read_text(encoding="utf-8")) for path in site.rglob("*.html")}
    count = 0
    for path, page in pages.items():
        for link in page.links:
            address = urllib.parse.urlsplit(link)
            if address.scheme or link.startswith(("#", "data:", "//")) and link == "#":
                continue
            count += 1
            file = path if not address.path else pathlib.Path(
                os.path.normpath(path.parent / urllib.parse.unquote(address.path)))
            if not file.exists():
                yield f"{path.relative_to(site)} links to {link}, which does not exist"
            elif address.fragment and file in pages and (
                    urllib.parse.unquote(address.fragment) not in pages[file].anchors):
                yield f"{path.relative_to(site)} links to {link}, which has no such place"
    print(f"{len(pages)} pages, {count} links checked")


def fetched(site):
    """Complaints about scripts, styles and pictures that a browser would fetch from the network."""
    for path in site.rglob("*.html"):
        text = path.read_text(encoding="utf-8")
        for tag in FETCHED.findall(text):
            yield f"{path.relative_to(site)} fetches from the network: {tag}"


def main():
    os.chdir(ROOT)
    output = pathlib.Path(sys.argv[1]).resolve()
    builds = {"windows-x64": sys.argv[2], "linux-x64": sys.argv[3]}
    stage = output / "source"
    shutil.rmtree(output, ignore_errors=True)
    stage.mkdir(parents=True)
    read = headers.read_all(reference.INCLUDE)
    read[STATIC].entries.clear()
    stage_documents(stage, Names(read))
    exports = stage_reference(stage, read, builds)
    log = output / "sphinx.log"
    done = subprocess.run([sys.executable, "-m", "sphinx", "-b", "html", "-n", "-W", "--keep-going",
                           "-q", "-j", "auto", "-w", str(log), str(stage), str(output / "html")],
                          env={**os.environ, "KIVSDU_SOURCE": str(ROOT)}, check=False)
    if done.returncode != 0:
        raise SystemExit(f"make_site: Sphinx found mistakes; they are in {log}")
    complaints = [*dead_links(output / "html"), *fetched(output / "html")]
    for complaint in complaints:
        print(f"make_site: {complaint}", file=sys.stderr)
    if complaints:
        return 1
    print(f"{exports} exports documented; open {output / 'html/index.html'}")
    return 0


sys.exit(main())
