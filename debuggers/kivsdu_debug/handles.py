"""Kernel objects of the Linux library: what a handle names, and its state."""

from typing import Iterator, NamedTuple, Tuple

from . import constants as k
from .locks import plural
from .process import CannotTell, Process, Record

OWNER_MASK = 0x3FFFFFFF  # of the word of a mutex of the C library
CHUNKS = (1 << k.kSlotNumberBits) // k.kSlotsPerChunk
NOT_SAVED = "whose state is in shared memory, which the core file does not have"
CONTENT = "kiv::os::"
HIDDEN = "kiv::os::(anonymous namespace)::"


class Word(NamedTuple):
    """The first word of an object: its own state, and the threads that wait for or use it."""

    state: int
    users: int

    @classmethod
    def of(cls, value: int) -> "Word":
        """Takes the word apart."""
        return cls(value & 0xFFFFFFFF, value >> 32 & 0xFFFFF)

    @property
    def waiting(self) -> str:
        """The waiting threads for a person."""
        return f", {plural(self.users, 'thread')} waiting" if self.users else ""


def slot_of(process: Process, handle: int) -> Tuple[Record, str]:
    """The slot that an open handle names, and its kind. Raises CannotTell for any other number."""
    index = handle & ((1 << k.kSlotNumberBits) - 1)
    chunk = 0
    if 0 < handle < 1 << 31:
        chunks = process.variable("kiv::os::slotChunks")
        chunk = process.number(chunks + index // k.kSlotsPerChunk * 8, 8)
    if chunk == 0:
        raise CannotTell(f"{handle:#x} is not an open handle.")
    size = process.layout("kiv::os::Slot").size
    slot = process.record("kiv::os::Slot", chunk + index % k.kSlotsPerChunk * size)
    kind = slot.number("tag") & ((1 << k.kKindBits) - 1)
    if kind == 0 or slot.number("tag") >> k.kKindBits != handle >> k.kSlotNumberBits:
        raise CannotTell(f"{handle:#x} is not an open handle.")
    return slot, process.enumerators("kiv::os::Kind").get(kind, f"kind {kind}")


def open_handles(process: Process) -> Iterator[int]:
    """Every open handle."""
    chunks = process.variable("kiv::os::slotChunks")
    size = process.layout("kiv::os::Slot").size
    for number in range(CHUNKS):
        chunk = process.number(chunks + number * 8, 8)
        if chunk == 0:
            return
        for index in range(k.kSlotsPerChunk):
            slot = process.record("kiv::os::Slot", chunk + index * size)
            if slot.number("tag") & ((1 << k.kKindBits) - 1) != 0:
                generation = slot.number("tag") >> k.kKindBits
                yield generation << k.kSlotNumberBits | slot.number("number")


# ---- The kinds ----


def _semaphore(process: Process, content: int) -> str:
    record = process.record(HIDDEN + "UnnamedContent", content)
    return _units(Word.of(record.number("word")), record.number("maximumCount"), "semaphore")


def _shared_semaphore(process: Process, content: int) -> str:
    record = process.record(HIDDEN + "SharedContent", content)
    named = process.record(CONTENT + "NamedObject", record.number("object"))
    try:
        word = Word.of(process.number(named.number("semaphore"), 8))
    except CannotTell:
        return f"named semaphore, {NOT_SAVED}"
    return _units(word, named.number("maximumCount"), "named semaphore")


def _units(word: Word, maximum: int, noun: str) -> str:
    return f"{noun}, count {word.state & 0x7FFFFFFF} of at most {maximum}{word.waiting}"


def _mutex(process: Process, content: int) -> str:
    record = process.record(HIDDEN + "MutexContent", content)
    mutex = process.record(CONTENT + "OwnedMutex", record.number("mutex"))
    noun = "mutex" if record.number("named") == 0 else "named mutex"
    try:
        owner = process.number(mutex.number("mutex"), 4) & OWNER_MASK  # the word comes first
    except CannotTell:
        return f"{noun}, {NOT_SAVED}"
    state = "free"
    if owner != 0:
        depth = mutex.number("depth") if mutex.number("owner") != 0 else 1
        again = f", taken {depth} times" if depth > 1 else ""
        state = f"held by {process.thread_name(owner)}{again}"
    return f"{noun}, {state}{Word.of(record.number('word')).waiting}"


def _event(process: Process, content: int) -> str:
    record = process.record(CONTENT + "EventContent", content)
    word = Word.of(record.number("word"))
    kind = "manual event" if word.state & 2 else "event"
    state = "signalled" if word.state & 1 else "not signalled"
    transfers = record.number("pendingTransfers")
    pending = f", {plural(transfers, 'transfer')} in the background" if transfers else ""
    return f"{kind}, {state}{word.waiting}{pending}"


def _thread(process: Process, content: int) -> str:
    record = process.record(CONTENT + "ThreadHandle", content)
    thread = process.record(CONTENT + "Thread", record.number("thread"))
    if thread.number("id") == 0:
        return "thread, not started yet"
    name = process.thread_name(thread.number("id"))
    if thread.number("hasEnded") != 0:
        return f"{name}, ended with exit code {thread.number('exitCode')}"
    return f"{name}, {'suspended' if thread.number('isParked') else 'running'}"


def _block(process: Process, content: int) -> str:
    record = process.record(HIDDEN + "BlockContent", content)
    named = process.record(CONTENT + "NamedObject", record.number("object"))
    return f"shared block, {named.number('blockBytes')} bytes"


def _pipe(process: Process, content: int) -> str:
    pipe = process.record(CONTENT + "PipeHandle", content)
    if pipe.number("named") == 0:
        end = "reading" if pipe.number("canRead") else "writing"
        return f"pipe, {end} end, descriptor {pipe.number('descriptor')}"
    named = process.record(CONTENT + "NamedPipe", pipe.number("named"))
    side = "server" if named.number("isServer") else "client"
    state = "not connected"
    if named.signed("connection") >= 0:
        state = "connected"
    elif named.signed("listener") >= 0:
        state = "listening"
    return f"named pipe, {side}, {state}"


def _file(process: Process, content: int) -> str:
    file = process.record(CONTENT + "DirectFile", content)
    overlapped = ", overlapped" if file.number("overlapped") else ""
    return f"file for direct I/O, descriptor {file.number('descriptor')}{overlapped}"


KINDS = {
    "kSemaphore": _semaphore,
    "kSharedSemaphore": _shared_semaphore,
    "kMutex": _mutex,
    "kEvent": _event,
    "kThread": _thread,
    "kBlock": _block,
    "kPipe": _pipe,
    "kFile": _file,
    "kSearch": lambda process, content: "file search",
}


def content_of(process: Process, handle: int) -> int:
    """The address of the object that an open handle names."""
    slot, _ = slot_of(process, handle)
    return slot.at("content")


def describe(process: Process, handle: int) -> str:
    """One line about an open handle."""
    slot, kind = slot_of(process, handle)
    if kind not in KINDS:
        return f"object of {kind}"
    return KINDS[kind](process, slot.at("content"))
