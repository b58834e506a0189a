"""Finds the calls of the system behind each exported function, in the objects of a build.

The disassembler lists the functions of each object file and the names to which they refer. From an
exported function the search follows the library's own functions. It stops at another exported
function, which has an entry of its own, and at a function of the system or of the C runtime.
"""
import pathlib
import re
import subprocess

# Functions that only compute or copy, that report errors, or that belong to assertions. They say
# nothing about the system.
COMPUTING = frozenset("""
  memcpy memmove memset memcmp memchr strlen strnlen strcmp strncmp strchr strrchr strcpy strncpy
  strcat strstr strpbrk strspn strcspn strcasecmp strncasecmp stpcpy strtol strtoul strtoull strtoll
  atol atoi isspace isdigit toupper tolower __ctype_b_loc __ctype_tolower_loc __ctype_toupper_loc
  sprintf snprintf sscanf vsnprintf __isoc99_sscanf qsort bsearch _finite _strupr __sched_cpucount
  pthread_once pthread_atfork __errno_location _errno errno GetLastError SetLastError
  gnu_dev_major gnu_dev_minor
  gnu_dev_makedev __assert_fail _assert _wassert abort __tls_get_addr _tls_index
""".split())

# Linux's numbers of the calls that the library makes without a function of the C library.
NUMBERED = {186: "gettid", 202: "futex", 206: "io_setup", 207: "io_destroy", 208: "io_getevents",
            209: "io_submit", 234: "tgkill", 332: "statx", 439: "faccessat2"}

ERROR_SOURCES = {"GetLastError": "GetLastError", "_errno": "errno"}

FUNCTION = re.compile(r"^[0-9a-f]+ <([^>]+)>:$")
RELOCATION = re.compile(r"(?:R_X86_64|IMAGE_REL_AMD64)_\w+\s+(\S+)")
NUMBER = re.compile(r"mov[lq]?\s+\$(\d+), %[er]di")


def objects(build):
    """The object files of the library: the newest of each source that still exists."""
    found = {}
    for path in pathlib.Path(build, "sd").rglob("*.cpp.o*"):
        source = str(path).split(".dir/", 1)[-1].removesuffix(path.suffix)
        if pathlib.Path("sd", source).exists():
            found.setdefault(source, []).append(path)
    return [max(paths, key=lambda path: path.stat().st_mtime) for _, paths in sorted(found.items())]


def plain(name):
    """The name without what the linker and the object format add."""
    name = re.sub(r"[-+]0x[0-9a-f]+$", "", name)
    name = re.sub(r"^\.text\$?\.?(?=\w)", "", name)
    return name.removeprefix("__imp_").split("@")[0]


def disassemble(paths):
    done = subprocess.run(["llvm-objdump", "-d", "-r", "--no-show-raw-insn", *map(str, paths)],
                          capture_output=True, text=True, check=True)
    return done.stdout


class Graph:
    """What each function of a build refers to."""

    def __init__(self, build):
        self.functions = {}
        paths = objects(build)
        if not paths:
            raise SystemExit(f"{build} has no objects of the library: run ./dev build")
        unit, current, number = "", None, None
        for line in disassemble(paths).split("\n"):
            if line.endswith(("file format elf64-x86-64", "file format coff-x86-64")):
                unit = line.split(":")[0]
            elif match := FUNCTION.match(line):
                current = self.functions.setdefault(self.own(match.group(1), unit), set())
            elif current is not None and (match := RELOCATION.search(line)):
                name = plain(match.group(1))
                current.add(self.own(name, unit))
                if name == "syscall" and number is not None:
                    current.add(NUMBERED.get(number, f"system call {number}"))
            elif match := NUMBER.search(line):
                number = int(match.group(1))

    @staticmethod
    def own(name, unit):
        """Makes the name of a private function unique: several sources may have one of it."""
        return f"{unit}:{name}" if "_GLOBAL__N_" in name else name

    def behind(self, export, body, exports):
        """The system's functions that an export calls, and the other exports that it calls."""
        system, through, seen, todo = set(), set(), set(), [body]
        while todo:
            name = todo.pop()
            if name in seen:
                continue
            seen.add(name)
            for called in self.functions.get(name, ()):
                if called in exports:
                    through.add(called)
                elif called in self.functions:
                    todo.append(called)
                elif self.is_of_the_system(called):
                    system.add(called)
        return sorted(system), sorted(through - {export, body})

    def error_kinds(self, body):
        """Where the numbers come from that an operation of Windows may report as OS error."""
        seen, todo, kinds = set(), [body], set()
        while todo:
            name = todo.pop()
            if name in seen:
                continue
            seen.add(name)
            kinds |= {ERROR_SOURCES[called] for called in self.functions.get(name, ())
                      if called in ERROR_SOURCES}
            todo += self.functions.get(name, ())
        return kinds

    @staticmethod
    def is_of_the_system(name):
        """Whether a name without a body here belongs to the system or to the C runtime."""
        if name in COMPUTING or name == "syscall" or name.startswith("system call"):
            return name.startswith("system call")
        return re.fullmatch(r"_?[A-Za-z]\w+", name) is not None and not name.startswith(
            ("_Z", "GCC_", "adInitMod", "kiv", "str", "std"))


def principal(path):
    """The chosen calls of each platform: {platform: {export: [call]}}."""
    chosen, platform = {}, None
    for line in pathlib.Path(path).read_text(encoding="utf-8").split("\n"):
        if line.startswith("["):
            platform = chosen.setdefault(line.strip("[]"), {})
        elif " = " in line:
            exports, calls = line.split(" = ")
            platform.update({export: calls.split() for export in exports.split()})
    return chosen


MOST_CALLS = 5
BOOKKEEPING = {"pthread_mutex_lock", "pthread_mutex_unlock"}


def choose(export, platform, system, chosen, complaints):
    """The calls to show: all if they are few, else the chosen ones."""
    calls = chosen[platform].get(export)
    working = [call for call in system if call not in BOOKKEEPING]
    if calls is None and working:
        system = working
    if calls is None:
        if len(system) > MOST_CALLS:
            complaints.append(f"principal_calls.txt has no line for {export} on {platform}, which "
                              f"calls {' '.join(system)}")
        return system
    wrong = sorted({call for call in calls if not call.endswith("*")} - set(system))
    if wrong:
        complaints.append(f"principal_calls.txt: {export} on {platform} does not call "
                          f"{' '.join(wrong)}, but {' '.join(system)}")
    return [call.rstrip("*") for call in calls]


def wrong_kinds(said, exports, graph):
    """Complaints about operations that name another kind of OS error than their objects report."""
    for export, kinds in said.items():
        wrong = kinds - graph.error_kinds(exports[export][0])
        for kind in sorted(wrong):
            yield f"{export}: the header says {kind}, but the operation never reads it"


def all_calls(exports, graphs, chosen):
    """{export: {platform: (calls of the system, exports called)}}, and the complaints."""
    found, complaints = {}, []
    for platform, graph in graphs.items():
        for export, (body, _) in exports.items():
            system, through = graph.behind(export, body, exports)
            shown = choose(export, platform, system, chosen, complaints)
            found.setdefault(export, {})[platform] = (shown, through)
    return found, complaints
