"""One line for each structure. Printers of both debuggers show it."""

from typing import List

from . import handles, heaps, locks, statuses
from . import constants as k
from .process import CannotTell, Process, Record

NOT_MAPPED = 0xDEADBEEF  # KIV_SEGMENT_NOT_MAPPED
MAX_STACK_BLOCKS = 100000


def context(process: Process, address: int) -> str:
    """A KivSdContext."""
    record = process.record("KivSdContext", address)
    return f"{statuses.describe(record.number('status'))}, OS error {record.number('osError')}"


# ---- Memory ----


def heap(process: Process, address: int) -> str:
    """A kiv::Heap, without a walk over its blocks."""
    if not heaps.is_heap(process, address):
        return "not a heap"
    arena = heaps.Arena(process, address)
    lock = ""
    if arena.heap.number("lock") != 0:
        lock = "; " + locks.spinlock(process, arena.heap.number("lock")).summary
    return (f"{arena.title}, arena of {arena.size} bytes, "
            f"{locks.plural(arena.heap.number('parked'), 'parked block')}{lock}")


def block(process: Process, address: int) -> str:
    """A kiv::Block."""
    record = process.record("kiv::Block", address)
    size = f"{record.number('sizeBytes')} bytes, header included"
    if record.number("heap") == 0:
        return f"free block in bin {record.number('bin')}, {size}"
    if record.number("next") != 0:
        return f"parked block of heap {record.number('heap'):#x}, {size}"
    return (f"block of heap {record.number('heap'):#x}, {size}, "
            f"payload {address + k.kBlockHeaderBytes:#x}")


def large_block(process: Process, address: int) -> str:
    """A kiv::LargeBlock."""
    record = process.record("kiv::LargeBlock", address)
    return f"large block of {record.number('sizeBytes')} bytes, payload {record.end:#x}"


def memory_stack(process: Process, address: int) -> str:
    """A KivSdMemStack."""
    stack = process.record("KivSdMemStack", address)
    used = _stack_blocks(process, stack.number("top"))
    free = _stack_blocks(process, stack.number("freeList"))
    if not used:
        return f"empty memory stack, {locks.plural(len(free), 'free block')}"
    return (f"memory stack, {locks.plural(len(used), 'block')} of {sum(used)} bytes, "
            f"the top one filled to {stack.number('topOffset')} of {used[0]} bytes, "
            f"{locks.plural(len(free), 'free block')}")


def _stack_blocks(process: Process, address: int) -> List[int]:
    sizes = []
    while address != 0 and len(sizes) < MAX_STACK_BLOCKS:
        record = process.record("kiv::StackBlock", address)
        sizes.append(record.number("sizeBytes"))
        address = record.number("next")
    return sizes


def short_owner(process: Process, address: int) -> str:
    """An AdShortHeapOwner."""
    record = process.record("AdShortHeapOwner", address)
    if record.number("heap") == 0:
        return "owner without a short heap"
    count = sum(1 for _ in heaps.ring_of(process, record.number("heap")))
    large = ", with large blocks" if record.number("largeBlocks") else ""
    return f"owner of {locks.plural(count, 'short heap')}{large}"


# ---- Segments ----


def segment(process: Process, address: int) -> str:
    """A KivSharedMemSeg."""
    record = process.record("KivSharedMemSeg", address)
    size = process.layout("KivSharedMemSeg").fields["name"][1]
    name = process.text(address, size)
    kind = record.number("kind")
    parts = [f'segment "{name}" of kind {kind}']
    chunks = record.number("chunkCount")
    if chunks == 0:
        return f"{parts[0]}, not set up"
    parts.append("not mapped" if record.number("buffer") in (0, NOT_MAPPED)
                 else f"mapped at {record.number('buffer'):#x}")
    taken = [str(i) for i in range(chunks) if record.number("takenMask") >> i & 1]
    parts.append(f"took chunk {', '.join(taken)}" if taken else "took no chunk")
    return ", ".join(parts + _transfers(process, record, chunks) + _segment_locks(process, record))


def _transfers(process: Process, record: Record, chunks: int) -> List[str]:
    size = process.layout("KivSharedMemTransfer").size
    found = []
    for index in range(chunks):
        for direction in ("reading", "writing"):
            transfer = process.record("KivSharedMemTransfer", record.at(direction) + index * size)
            where = f"chunk {index} {direction}"
            if transfer.number("code") != 0:
                found.append(f"{where}: blocked by code {transfer.number('code'):#x}")
            elif transfer.number("offset") != 0:
                found.append(f"{where}: at offset {transfer.number('offset')}, "
                             f"length {transfer.number('lengthBytes')}")
    return found


def _segment_locks(process: Process, record: Record) -> List[str]:
    """Who is to move in each taken chunk; only the Linux library's handles can be read."""
    if record.number("semaphores") == 0:
        return ["no semaphores"]
    if not process.knows("kiv::os::Slot"):
        return []
    members = process.record("KivSdShSemSet", record.number("semaphores")).number("members")
    try:
        counts = [_count(process, process.number(members + 8 * i, 8))
                  for i in range(record.number("chunkCount") * k.kMembersPerChunk + 1)]
    except CannotTell:
        return [f"semaphores {handles.NOT_SAVED}"]
    found = [] if counts[k.kChunkLock] else ["the chunk lock is taken"]
    for index in range(record.number("chunkCount")):
        if record.number("takenMask") >> index & 1:
            first = index * k.kMembersPerChunk + 1
            found.append(f"chunk {index}: first half {_half(counts[first:first + 2])}, "
                         f"second half {_half(counts[first + 2:first + 4])}")
    return found


def _count(process: Process, handle: int) -> int:
    slot, _ = handles.slot_of(process, handle)
    content = process.record(handles.HIDDEN + "SharedContent", slot.at("content"))
    named = process.record("kiv::os::NamedObject", content.number("object"))
    return handles.Word.of(process.number(named.number("semaphore"), 8)).state & 0x7FFFFFFF


def _half(counts: List[int]) -> str:
    full, empty = counts
    if full:
        return "full"
    return "empty" if empty else "in work"


# ---- Locks and handles ----


def _lock(read):
    return lambda process, address: read(process, address).summary


def handle(process: Process, number: int) -> str:
    """A KivHandle of the Linux library; empty for what is not an open handle."""
    try:
        return handles.describe(process, number)
    except CannotTell:
        return ""


# The name of the type and what describes a value of it.
BY_TYPE = {
    "KivSdContext": context,
    "kiv::Heap": heap,
    "kiv::Block": block,
    "kiv::LargeBlock": large_block,
    "KivSdMemStack": memory_stack,
    "AdShortHeapOwner": short_owner,
    "KivSharedMemSeg": segment,
    "KivSdSpinlock": _lock(locks.spinlock),
    "KivSdLWSpinlock": _lock(locks.lightweight),
    "KivSdCritSec": _lock(locks.critical_section),
    "KivRWLock": _lock(locks.reader_writer),
}


def describe(process: Process, type_name: str, address: int) -> str:
    """One line about a structure; what is missing if it cannot be told."""
    try:
        return BY_TYPE[type_name](process, address)
    except CannotTell as problem:
        return f"{type_name} at {address:#x}. {problem}"
