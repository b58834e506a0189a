"""A copy of the source tree with its native build, in which mutants are built and tested."""

import dataclasses
import json
import os
import re
import resource
import shutil
import signal
import subprocess
import time
from pathlib import Path

PRESET = "linux-x64"
CONFIGURE = ("-DKIVSDU_TESTS=ON", "-DKIVSDU_EXAMPLES=OFF", "-DKIVSDU_TOOLS=OFF")

BUILD_SECONDS = 300
LEAST_TEST_SECONDS = 10
BUILD_FOLDER = "@BUILD@"  # in commands, which hold for every worker
SLOWER = 5  # a test that takes so many times its usual time has failed
MEMORY_BYTES = 8 << 30  # a mutant may allocate without end


@dataclasses.dataclass
class Test:
    name: str
    folder: str  # of the sources and in the build, such as tests/memory
    command: list[str]  # empty before the program is built
    is_long: bool
    seconds: float = 0.0


class BuildFailed(Exception):
    """The sources do not build."""


def _limit_memory() -> None:
    resource.setrlimit(resource.RLIMIT_AS, (MEMORY_BYTES, MEMORY_BYTES))
    resource.setrlimit(resource.RLIMIT_CORE, (0, 0))


def _run(command: list[str], seconds: float, **options) -> tuple[int | None, str]:
    """The exit code, None after a time-out, and the end of the output. Leaves no process."""
    with subprocess.Popen(
        command, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, stdin=subprocess.DEVNULL,
        start_new_session=True, text=True, errors="replace", **options,
    ) as process:  # fmt: skip
        try:
            output, _ = process.communicate(timeout=seconds)
            return process.returncode, output[-4000:]
        except subprocess.TimeoutExpired:
            return None, ""
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
        """Needed once: the build configures itself anew when that is needed."""
        if (self.build / "build.ninja").exists():
            return
        command = ["cmake", "--preset", PRESET, *CONFIGURE]
        if subprocess.run(command, cwd=self.tree, check=False).returncode != 0:
            raise BuildFailed("the copy cannot be configured")

    def build_original(self, tests: list[Test]) -> None:
        """Shows the build's progress. Uses a compiler cache if there is one."""
        targets = [test.name for test in tests]
        command = ["cmake", "--build", str(self.build), "--target", "kivsdu", *targets]
        if subprocess.run(command, check=False).returncode != 0:
            raise BuildFailed("the tree does not build without a mutant")

    def builds(self, target: str) -> bool:
        """Builds a target of a mutant, without warnings, which a mutant often causes."""
        environment = dict(os.environ, CCC_OVERRIDE_OPTIONS="+-w", CCACHE_DISABLE="1")
        code, _ = _run(["ninja", "-C", str(self.build), target], BUILD_SECONDS, env=environment)
        return code == 0

    # ---- The tests ----

    def tests(self) -> list[Test]:
        """The tests that are named like their program. Others run a program a second time."""
        listing = subprocess.run(
            ["ctest", "--show-only=json-v1"],
            cwd=self.build, check=True, capture_output=True, text=True,
        )  # fmt: skip
        targets = subprocess.run(
            ["ninja", "-t", "targets", "all"],
            cwd=self.build, check=True, capture_output=True, text=True,
        )  # fmt: skip
        programs = set(re.findall(r"^(\w+): phony$", targets.stdout, re.MULTILINE))
        entries = json.loads(listing.stdout)["tests"]
        return [self._test(entry) for entry in entries if entry["name"] in programs]

    def _test(self, entry: dict) -> Test:
        properties = {item["name"]: item["value"] for item in entry.get("properties", [])}
        directory = Path(properties.get("WORKING_DIRECTORY", self.build))
        command = [part.replace(str(self.build), BUILD_FOLDER) for part in entry.get("command", [])]
        return Test(entry["name"], str(directory.relative_to(self.build)), command,
                    "long" in properties.get("LABELS", []))  # fmt: skip

    def passes(self, test: Test, seconds: float) -> bool:
        environment = dict(os.environ, TMPDIR=str(self.temporary), GTEST_FAIL_FAST="1")
        command = [part.replace(BUILD_FOLDER, str(self.build)) for part in test.command]
        code, _ = _run(command, seconds, cwd=self.build / test.folder, env=environment,
                       preexec_fn=_limit_memory)  # fmt: skip
        return code == 0

    def measure(self, test: Test) -> bool:
        """Runs a test on the original, and notes the time."""
        start = time.monotonic()
        passed = self.passes(test, 600)
        test.seconds = time.monotonic() - start
        return passed

    def kills(self, test: Test) -> bool:
        return not self.passes(test, max(LEAST_TEST_SECONDS, SLOWER * test.seconds))
