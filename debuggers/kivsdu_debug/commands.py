"""The texts of the commands. Each takes numbers that the debugger has evaluated."""

from typing import Iterable, Iterator, Optional

from . import handles, heaps, locks, summaries
from .process import CannotTell, Process

HEAP_HELP = """Walk a heap of the library: totals, and the first broken block.

  kiv-heap ADDRESS   the heap at an address, or the heap of the block whose payload is there
  kiv-heap           all thread heaps, the spare ones too"""

SHOW_HELP = """Describe a structure of the library in one line.

  kiv-show VALUE     VALUE is a structure or a pointer to one, such as KivSdContext, KivRWLock,
                     KivSharedMemSeg, KivSdMemStack, AdShortHeapOwner, kiv::Heap, kiv::Block"""

LOCK_HELP = """Tell who holds a lock and which threads wait for it.

  kiv-lock LOCK      LOCK is a lock or a pointer to one: KivSdSpinlock, KivSdLWSpinlock, KivRWLock,
                     KivSdCritSec"""

HANDLE_HELP = """Tell what a handle of the Linux library names, and its state.

  kiv-handle HANDLE  one handle, with the threads that wait for it
  kiv-handle         all open handles"""

LOCKS = {
    "KivSdSpinlock": locks.spinlock,
    "KivSdLWSpinlock": locks.lightweight,
    "KivSdCritSec": locks.critical_section,
    "KivRWLock": lambda process, address: locks.reader_writer(process, address, search=True),
}


def _require(type_name: str, known: Iterable[str], what: str) -> None:
    if type_name not in known:
        raise CannotTell(f"{type_name} is not {what}. Pass one of these, or a pointer to it, or "
                         f"cast an address: {', '.join(known)}")


# ---- kiv-show ----


def show(process: Process, type_name: str, address: int) -> Iterator[str]:
    """The line of kiv-show."""
    _require(type_name, summaries.BY_TYPE, "a structure that kiv-show knows")
    yield summaries.BY_TYPE[type_name](process, address)


# ---- kiv-heap ----


def heap(process: Process, address: Optional[int]) -> Iterator[str]:
    """The lines of kiv-heap."""
    if address is not None:
        yield from walk(process, heaps.find_heap(process, address))
        return
    found = list(heaps.thread_heaps(process))
    if not found:
        yield "The process has no thread heaps: the memory manager is in plain mode."
    for number in found:
        yield from walk(process, number)


def walk(process: Process, address: int) -> Iterator[str]:
    """The lines about one heap."""
    arena = heaps.Arena(process, address)
    found = heaps.Walk(arena)
    yield f"heap {address:#x}, {arena.title}, arena of {arena.size} bytes"
    in_use = sum(block.size for block in found.in_use)
    parked = [block.size for block in found.blocks if block.offset in found.parked]
    free = [block.size for block in found.free]
    yield f"  in use  {_row(len(found.in_use), in_use)}"
    yield f"  parked  {_row(len(parked), sum(parked))}"
    largest = f", the largest {max(free)}" if free else ""
    yield f"  free    {_row(len(free), sum(free))}{largest}"
    if found.fault is None:
        yield "  no broken block"
    else:
        yield from _fault(arena, found)
    yield from _lock_of(process, arena)


def _row(count: int, size: int) -> str:
    noun = "block, " if count == 1 else "blocks,"
    return f"{count:6} {noun} {size:11} bytes"


def _fault(arena: heaps.Arena, found: heaps.Walk) -> Iterator[str]:
    fault = found.fault
    if fault.offset is None:
        yield f"  the heap's tables are broken: {fault.text}"
        return
    yield "  the totals end at the first broken block"
    yield (f"  first broken block: {arena.address + fault.offset:#x}, "
           f"at offset {fault.offset} of the arena")
    yield f"    {fault.text}"
    header = arena.bytes[fault.offset:fault.offset + heaps.k.kBlockHeaderBytes]
    yield f"    header: {header.hex(' ')}"
    before = [block for block in found.blocks if block.offset < fault.offset]
    if before:
        yield from _suspect(arena, found, before[-1])


def _suspect(arena: heaps.Arena, found: heaps.Walk, block: heaps.Block) -> Iterator[str]:
    payload = arena.address + block.offset + heaps.k.kBlockHeaderBytes
    state = "in use"
    if block.heap == 0:
        state = "free"
    elif block.offset in found.parked:
        state = "freed and parked"
    size = block.size - heaps.k.kBlockHeaderBytes
    yield (f"    the block before it is {state}: payload {payload:#x} of {size} bytes. "
           "Its user may have written past its end")


def _lock_of(process: Process, arena: heaps.Arena) -> Iterator[str]:
    lock = arena.heap.number("lock")
    if lock != 0:
        summary = locks.spinlock(process, lock).summary
        if not summary.endswith("free"):
            yield f"  the heap may be in the middle of a change: {summary}"


# ---- kiv-lock ----


def lock(process: Process, type_name: str, address: int) -> Iterator[str]:
    """The lines of kiv-lock."""
    _require(type_name, LOCKS, "a lock")
    state = LOCKS[type_name](process, address)
    yield state.summary
    for line in state.lines + locks.waiters(process, state):
        yield f"  {line}"


# ---- kiv-handle ----


def handle(process: Process, number: Optional[int]) -> Iterator[str]:
    """The lines of kiv-handle."""
    if number is None:
        for found in handles.open_handles(process):
            yield f"{found:#x}  {handles.describe(process, found)}"
        return
    yield f"{number:#x}  {handles.describe(process, number)}"
    content = handles.content_of(process, number)
    for thread in process.threads_inside():
        if content in thread.words or number in thread.words:
            yield f"  {process.thread_name(thread.system_id)} is in {thread.operation}"
