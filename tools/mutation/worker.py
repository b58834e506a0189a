"""A copy of the source tree with its native build, in which mutants are built and tested."""

import collections
import dataclasses
import functools
import hashlib
import json
import os
import re
import resource
import shutil
import signal
import subprocess
import time
from collections.abc import Iterator
from pathlib import Path

from . import coverage
from .linemap import Lines, Runs

PRESET = "linux-coverage"
# An export list names the function that writes the counters, also where there is none.
LINKER = "-fuse-ld=lld -Wl,--undefined-version"
CONFIGURE = (
    # A new library does not link again the programs that load it.
    "-DCMAKE_LINK_DEPENDS_NO_SHARED=ON",
    f"-DCMAKE_SHARED_LINKER_FLAGS={LINKER}", f"-DCMAKE_EXE_LINKER_FLAGS={LINKER}",
)  # fmt: skip

# What ends a test. The limits hold on a busy machine too: a mutant that loops is noticed by the
# processor's time, and one that waits for ever because nothing of it runs for a while.
LEAST_CPU_SECONDS = 3
IDLE_SECONDS = 3
POLLING = 4  # so many times as long, no sample has found a thread that could run
MOST_SECONDS = 600
SLOWER = 5  # a test that takes so many times its usual time has failed
MEMORY_BYTES = 8 << 30  # a mutant may allocate without end
TEST_OBJECT = re.compile(r"tests/.*/(\w+)\.dir/")
NO_PROFILE = "/dev/null"
TREE = "@TREE@"  # in arguments, which hold for every worker


@dataclasses.dataclass
class Test:
    name: str
    target: str  # the program
    folder: str  # of the sources and in the build, such as tests/memory
    arguments: list[str]
    environment: dict[str, str]
    is_long: bool


class BuildFailed(Exception):
    """The sources do not build."""


def _digest_of_text(text: str) -> str:
    return hashlib.sha256(text.encode()).hexdigest()[:16]


@functools.cache
def _digest(path: Path) -> str:
    return hashlib.sha256(path.read_bytes()).hexdigest()


def _limit(cpu_seconds: int) -> None:
    """Also for a run in the background, whose shell makes it ignore signals: tests notice that."""
    for number in (signal.SIGHUP, signal.SIGINT, signal.SIGQUIT):
        signal.signal(number, signal.SIG_DFL)
    resource.setrlimit(resource.RLIMIT_AS, (MEMORY_BYTES, MEMORY_BYTES))
    resource.setrlimit(resource.RLIMIT_CORE, (0, 0))
    resource.setrlimit(resource.RLIMIT_CPU, (cpu_seconds, cpu_seconds))


@dataclasses.dataclass
class Limits:
    """In seconds."""

    idle: float = MOST_SECONDS
    cpu: int = MOST_SECONDS


def _activity(session: int) -> tuple[int, bool]:
    """The processor's time that the processes of a session have used, and whether any can run."""
    used, runs = 0, False
    for entry in Path("/proc").glob("[0-9]*"):
        try:
            if os.getsid(int(entry.name)) != session:
                continue
            for task in (entry / "task").iterdir():
                fields = (task / "stat").read_text().rpartition(")")[2].split()
                used += int(fields[11]) + int(fields[12])
                runs = runs or fields[0] in "RD"
        except (ProcessLookupError, FileNotFoundError):
            continue
    return used, runs


def _wait(process: subprocess.Popen, idle_seconds: float) -> int | None:
    """The exit code; None if the process was idle for so long, polled for much longer, or runs for
    ever."""
    start = last_active = last_busy = time.monotonic()
    used = -1
    while True:
        try:
            return process.wait(0.5)
        except subprocess.TimeoutExpired:
            now = time.monotonic()
        before = used
        used, runs = _activity(process.pid)
        if runs:
            last_busy = now
        if runs or used != before:
            last_active = now
        if (now - last_active > idle_seconds or now - last_busy > POLLING * idle_seconds
                or now - start > MOST_SECONDS):  # fmt: skip
            return None


def _run(command: list[str], limits: Limits, **options) -> int | None:
    """Runs a command without its output. Leaves no process."""
    with subprocess.Popen(
        command, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL, stdin=subprocess.DEVNULL,
        start_new_session=True, preexec_fn=lambda: _limit(limits.cpu), **options,
    ) as process:  # fmt: skip
        try:
            return _wait(process, limits.idle)
        finally:
            try:
                os.killpg(process.pid, signal.SIGKILL)
            except ProcessLookupError:
                pass


class Worker:
    def __init__(self, source: Path, folder: Path):
        self.source = source
        self.tree = folder / "tree"
        self.build = self.tree / "build" / PRESET
        self.temporary = folder / "tmp"

    # ---- The copy ----

    def synchronise(self) -> None:
        """Makes the copy equal to the source tree. Files that are equal keep their time stamps."""
        self.temporary.mkdir(parents=True, exist_ok=True)
        listed = subprocess.run(
            ["git", "ls-files", "-z", "--cached", "--others", "--exclude-standard"],
            cwd=self.source, check=True, capture_output=True, text=True,
        ).stdout.split("\0")  # fmt: skip
        names = {name for name in listed if (self.source / name).is_file()}
        for name in names:
            self._copy(name)
        for path in self.tree.rglob("*.cpp"):  # CMake lists all others by name
            name = path.relative_to(self.tree)
            if str(name) not in names and name.parts[0] != "build":
                path.unlink()

    def _copy(self, name: str) -> None:
        original, copy = self.source / name, self.tree / name
        if copy.is_file() and copy.read_bytes() == original.read_bytes():
            return
        copy.parent.mkdir(parents=True, exist_ok=True)
        shutil.copyfile(original, copy)
        shutil.copymode(original, copy)

    def write(self, path: str, text: str) -> None:
        (self.tree / path).write_text(text)

    # ---- The build ----

    def configure(self) -> None:
        command = ["cmake", "--preset", PRESET, "--log-level=WARNING", *CONFIGURE]
        if subprocess.run(command, cwd=self.tree, check=False).returncode != 0:
            raise BuildFailed("the copy cannot be configured")

    def build_original(self, targets: list[str]) -> None:
        """Shows the build's progress. Uses a compiler cache if there is one."""
        command = ["cmake", "--build", str(self.build), "--target", "kivsdu", *targets]
        if subprocess.run(command, check=False).returncode != 0:
            raise BuildFailed("the tree does not build without a mutant")

    def builds(self, *targets: str) -> bool:
        """Builds targets of a mutant, without warnings, which a mutant often causes."""
        # A compiler cache knows the sources that the last mutant had changed. It need not keep the
        # mutants.
        environment = dict(os.environ, CCC_OVERRIDE_OPTIONS="+-w", CCACHE_READONLY_DIRECT="1")
        command = ["ninja", "-C", str(self.build), *targets]
        return _run(command, Limits(), env=environment) == 0

    @functools.cached_property
    def _compiled(self) -> list[tuple[str, list[str]]]:
        """Each object with the files of the tree that the compiler read for it."""
        listing = subprocess.run(
            ["ninja", "-t", "deps"], cwd=self.build, check=True, capture_output=True, text=True,
        ).stdout  # fmt: skip
        compiled = []
        for entry in listing.split("\n\n"):
            first, *rest = entry.strip().splitlines() or [""]
            compiled.append((first, [name for line in rest if (name := self._name(line.strip()))]))
        return compiled

    def _name(self, path: str) -> str | None:
        """The name in the tree of a path that the compiler has reported."""
        if path.startswith("/") and not path.startswith(f"{self.tree}/"):
            return None
        name = os.path.relpath(self.build / path, self.tree)
        return None if name.startswith(("..", "build/")) else name

    def including(self, header: str) -> tuple[list[str], set[str]]:
        """The sources of the library and the tests that include a header, or are it."""
        sources, tests = set(), set()
        for compiled, names in self._compiled:
            if header not in names:
                continue
            if names[0].startswith("sd/"):
                sources.add(names[0])
            elif target := TEST_OBJECT.match(compiled):
                tests.add(target.group(1))
        return sorted(sources), tests

    def digests(self, tests: list[Test]) -> dict[str, str]:
        """For each test a digest of all sources that it depends on."""
        sources = {path for folder in ("sd", "include", "kivutlu", "tests/support")
                   for path in (self.tree / folder).rglob("*") if path.is_file()}  # fmt: skip
        library = "".join(_digest(path) for path in sorted(sources))
        own = collections.defaultdict(set)
        for compiled, names in self._compiled:
            if target := TEST_OBJECT.match(compiled):
                own[target.group(1)].update(names)
        return {
            test.name: _digest_of_text(repr(test) + library + "".join(
                _digest(self.tree / name) for name in sorted(own[test.target])
            ))
            for test in tests
        }  # fmt: skip

    # ---- The tests ----

    def tests(self) -> list[Test]:
        """The tests that are one program of the build."""
        listing = subprocess.run(
            ["ctest", "--show-only=json-v1"],
            cwd=self.build, check=True, capture_output=True, text=True,
        )  # fmt: skip
        targets = subprocess.run(
            ["ninja", "-t", "targets", "all"],
            cwd=self.build, check=True, capture_output=True, text=True,
        )  # fmt: skip
        programs = set(re.findall(r"^(\w+): phony$", targets.stdout, re.MULTILINE))
        tests = [self._test(entry) for entry in json.loads(listing.stdout)["tests"]]
        return [test for test in tests if test.target in programs]

    def _test(self, entry: dict) -> Test:
        properties = {item["name"]: item["value"] for item in entry.get("properties", [])}
        directory = Path(properties.get("WORKING_DIRECTORY", self.build))
        # A program that is not built yet has no command.
        program, *arguments = entry.get("command", [entry["name"]])
        return Test(
            entry["name"], Path(program).name, str(directory.relative_to(self.build)),
            [argument.replace(str(self.tree), TREE) for argument in arguments],
            dict(pair.split("=", 1) for pair in properties.get("ENVIRONMENT", [])),
            "long" in properties.get("LABELS", []),
        )  # fmt: skip

    def measure(self, test: Test, digest: str) -> tuple[Runs, Lines]:
        """Runs a test on the original. Returns what it ran, and the lines of all code."""
        profiles = self.temporary / "profiles"
        shutil.rmtree(profiles, ignore_errors=True)
        profiles.mkdir(parents=True)
        start, before = time.monotonic(), resource.getrusage(resource.RUSAGE_CHILDREN)
        code = self._exit_code(test, Limits(idle=60), str(profiles / coverage.PROFILES))
        passed = code == 0
        seconds, after = time.monotonic() - start, resource.getrusage(resource.RUSAGE_CHILDREN)
        cpu = after.ru_utime + after.ru_stime - before.ru_utime - before.ru_stime
        ran, code_lines = {}, {}
        image = coverage.image(self._program(test))
        if passed and image is not None:
            ran, code_lines = coverage.read(profiles, image, self.tree)
        return Runs(digest, passed, seconds, cpu, ran), code_lines

    def exit_code(self, test: Test, usual: Runs) -> int | None:
        """Runs a test on a mutant. `usual` is what it does on the original. None if it hangs."""
        cpu_seconds = round(max(LEAST_CPU_SECONDS, SLOWER * usual.cpu_seconds))
        limits = Limits(max(IDLE_SECONDS, usual.seconds), cpu_seconds)
        return self._exit_code(test, limits, NO_PROFILE)

    def _program(self, test: Test) -> Path:
        return self.build / "bin" / test.target

    def _exit_code(self, test: Test, limits: Limits, profile: str) -> int | None:
        environment = dict(os.environ, TMPDIR=str(self.temporary), GTEST_FAIL_FAST="1",
                           LLVM_PROFILE_FILE=profile, **test.environment)  # fmt: skip
        command = [str(self._program(test)), *(argument.replace(TREE, str(self.tree))
                                               for argument in test.arguments)]  # fmt: skip
        return _run(command, limits, cwd=self.build / test.folder, env=environment)
