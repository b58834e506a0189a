"""What the debugger has to offer, and records in the memory of the process."""

import abc
import re
from typing import (Callable, Dict, FrozenSet, Iterable, List, NamedTuple, Optional, Sequence,
                    Tuple)


class CannotTell(Exception):
    """The text says to the user what is missing and what to do."""


class Layout(NamedTuple):
    """A type of the debugged program."""

    size: int
    fields: Dict[str, Tuple[int, int]]  # name: offset and size, in bytes


class Frame(NamedTuple):
    """A frame of a thread, innermost first."""

    function: str
    module: str  # the file's name without folders
    words: Callable[[], Iterable[int]]  # the registers that are known in this frame


class Thread(NamedTuple):
    """A thread of the debugged program that is inside the library."""

    system_id: int  # the operating system's; the library's identifier of the thread
    operation: str  # the library's function that the thread called
    words: FrozenSet[int]  # registers of the library's frames


INNERMOST_FRAMES = 16  # a thread that waits has no more frames in the library
EXPORTED = re.compile(r"KivSd|KivRW|KivGet|KivPut|KivRead|KivWrite|adM[ae]|adFree|adRealloc")
ROUTINE = "RunThread"  # calls the routine of a thread that the library has started


def _is_library(frame: Frame) -> bool:
    function = frame.function.lstrip(":")
    return (frame.module.startswith("libkivsdu") or function.startswith("kiv::")
            or EXPORTED.match(function) is not None)


def _short_name(function: str) -> str:
    return function.replace("(anonymous namespace)", "").split("(")[0].split("::")[-1]


def thread_inside(system_id: int, frames: Sequence[Frame]) -> Optional[Thread]:
    """What a thread does in the library; None if it does nothing there."""
    frames = frames[:INNERMOST_FRAMES]
    first = next((i for i, frame in enumerate(frames) if _is_library(frame)), None)
    if first is None:
        return None
    last = first
    while last + 1 < len(frames) and _is_library(frames[last + 1]):
        last += 1
    operation = _short_name(frames[last].function)
    if operation == ROUTINE and last == first:
        return None
    words = frozenset(word for frame in frames[:last + 1] for word in frame.words())
    return Thread(system_id, operation, words)


class Process(abc.ABC):
    """A process or a core file."""

    def __init__(self):
        self._layouts = {}

    def layout(self, name: str) -> Layout:
        """The layout of a type."""
        if name not in self._layouts:
            layout = self._find_layout(name)
            if layout is None:
                raise CannotTell(self.missing(f"the type {name}"))
            self._layouts[name] = layout
        return self._layouts[name]

    def knows(self, name: str) -> bool:
        """Whether a type is known."""
        try:
            self.layout(name)
            return True
        except CannotTell:
            return False

    def variable(self, name: str) -> int:
        """The address of a global variable of the library."""
        address = self._find_variable(name)
        if address is None:
            raise CannotTell(self.missing(f"the variable {name}"))
        return address

    def number(self, address: int, size: int) -> int:
        """An unsigned number in memory."""
        return int.from_bytes(self.read(address, size), "little")

    def record(self, type_name: str, address: int) -> "Record":
        """A structure in memory."""
        return Record(self, self.layout(type_name), address)

    def text(self, address: int, size: int) -> str:
        """A text that ends with a null byte or after `size` bytes."""
        return self.read(address, size).split(b"\0")[0].decode("ascii", "replace")

    def thread_name(self, system_id: int) -> str:
        """A thread for a person, with the debugger's number if the debugger knows it."""
        number = self.thread_numbers().get(system_id)
        return f"thread {system_id}" + (f" (#{number})" if number is not None else "")

    @staticmethod
    def missing(what: str) -> str:
        """What to tell the user about missing symbols."""
        return (f"The debug symbols of the library are missing: {what} is not known. "
                "Put libkivsdu.debug from the build or from the package of symbols beside "
                "libkivsdu.so and load the program again, or load the file by hand "
                "(docs/debuggers.md).")

    # ---- What a debugger has to do ----

    @abc.abstractmethod
    def read(self, address: int, size: int) -> bytes:
        """Memory. Raises CannotTell if it cannot be read."""

    @abc.abstractmethod
    def _find_layout(self, name: str):
        """The layout of a type, or None."""

    @abc.abstractmethod
    def _find_variable(self, name: str):
        """The address of a variable, or None."""

    @abc.abstractmethod
    def enumerators(self, name: str) -> Dict[int, str]:
        """The names of an enumeration's values; empty if it is not known."""

    @abc.abstractmethod
    def thread_numbers(self) -> Dict[int, int]:
        """The debugger's number of each thread, by the system's identifier."""

    @abc.abstractmethod
    def threads_inside(self) -> List[Thread]:
        """The threads that are inside the library."""


class Record:
    """A structure in memory. It is read once."""

    def __init__(self, process: Process, layout: Layout, address: int):
        self.process = process
        self.address = address
        self._layout = layout
        self._bytes = process.read(address, layout.size)

    @property
    def end(self) -> int:
        """The address just behind the structure."""
        return self.address + self._layout.size

    def at(self, field: str) -> int:
        """The address of a field."""
        return self.address + self._layout.fields[field][0]

    def _field(self, field: str) -> bytes:
        offset, size = self._layout.fields[field]
        return self._bytes[offset:offset + size]

    def number(self, field: str) -> int:
        """A field as an unsigned number."""
        return int.from_bytes(self._field(field), "little")

    def signed(self, field: str) -> int:
        """A field as a signed number."""
        return int.from_bytes(self._field(field), "little", signed=True)

    def numbers(self, field: str, size: int) -> List[int]:
        """An array of unsigned numbers of `size` bytes each."""
        data = self._field(field)
        return [int.from_bytes(data[i:i + size], "little") for i in range(0, len(data), size)]
