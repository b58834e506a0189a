"""Walks the arena of a heap, and finds the first broken block."""

import functools
from typing import Iterator, List, NamedTuple, Optional

from . import constants as k
from .process import CannotTell, Process

WORD = 8
MAX_HEAPS = 4096  # a ring of heaps that is longer is broken
ARENA_BYTES = range(1024, 1 << 32)


class Block(NamedTuple):
    """The header of a block. The fields after `next` are valid in a free block."""

    offset: int
    size: int
    previous: int
    heap: int
    next: int
    prev: int
    bin: int


class Fault(NamedTuple):
    """Something broken. The offset is that of a block, or None for the heap's own tables."""

    offset: Optional[int]
    text: str


def bin_of(size: int) -> int:
    """The bin of a free block of this size."""
    if size <= 2048:
        return size // 128
    if size <= 32767:
        return size // 2048 + 15
    return k.kBins - 1


class Arena:
    """A heap with all its blocks, read at once."""

    def __init__(self, process: Process, address: int):
        self.process = process
        self.address = address
        self.heap = process.record("kiv::Heap", address)
        self.first = self.heap.end - address
        self.size = self.heap.number("arenaEnd") - address
        if self.size not in ARENA_BYTES or self.size % WORD != 0:
            raise CannotTell(f"There is no heap at {address:#x}.")

    @functools.cached_property
    def bytes(self) -> bytes:
        """The whole arena."""
        return self.process.read(self.address, self.size)

    def word(self, offset: int, size: int) -> int:
        """A number in the arena."""
        return int.from_bytes(self.bytes[offset:offset + size], "little")

    def block(self, offset: int) -> Block:
        """The header at an offset."""
        at = offset
        return Block(at, self.word(at, 4), self.word(at + 4, 4), self.word(at + 8, 8),
                     self.word(at + 16, 8), self.word(at + 24, 8), self.word(at + 32, 4))

    def offset_of(self, address: int) -> Optional[int]:
        """The offset of an address where a block may start, or None."""
        offset = address - self.address
        inside = self.first <= offset <= self.size - k.kMinFreeBytes
        return offset if inside and offset % WORD == 0 else None

    @property
    def title(self) -> str:
        """What the heap serves."""
        index = self.heap.number("index")
        if index == k.kShortHeapIndex:
            return "short heap"
        if index == k.kSpareHeapIndex:
            return "spare thread heap"
        return f"thread heap of slot {index}"


class Walk:
    """The blocks of an arena, their totals, and the first fault."""

    def __init__(self, arena: Arena):
        self.arena = arena
        self.blocks: List[Block] = []  # in order, up to the first broken one
        self.in_use: List[Block] = []
        self.free: List[Block] = []
        self.parked = set()  # offsets
        self.fault: Optional[Fault] = None
        list_fault = self._read_quick_lists()
        self._read_blocks()
        if self.fault is None:
            self.fault = list_fault or self._fault_of_tables()

    # ---- Quick lists ----

    def _read_quick_lists(self) -> Optional[Fault]:
        for index, head in enumerate(self.arena.heap.numbers("quick", WORD)):
            fault = self._read_quick_list(index, head)
            if fault is not None:
                return fault
        return None

    def _read_quick_list(self, index: int, address: int) -> Optional[Fault]:
        size = (index + 1) * WORD + k.kBlockHeaderBytes
        before = None
        while address != 0:
            offset = self.arena.offset_of(address)
            if offset is None:
                return Fault(before, f"quick list {index} leads out of the arena, to {address:#x}")
            if offset in self.parked:
                return Fault(offset, f"it is on quick list {index} and on another place of the "
                                     "lists: it may have been freed twice")
            block = self.arena.block(offset)
            if block.size != size:
                return Fault(offset, f"it is on quick list {index}, whose blocks have {size} "
                                     f"bytes, and has {block.size}")
            self.parked.add(offset)
            before = offset
            address = block.next
        return None

    # ---- Blocks ----

    def _read_blocks(self) -> None:
        offset, previous = self.arena.first, 0
        while offset < self.arena.size:
            block = self.arena.block(offset)
            text = self._fault_of_block(block, previous)
            if text is not None:
                self.fault = Fault(offset, text)
                return
            self._count(block)
            offset, previous = offset + block.size, block.size

    def _count(self, block: Block) -> None:
        self.blocks.append(block)
        if block.heap == 0:
            self.free.append(block)
        elif block.offset not in self.parked:
            self.in_use.append(block)

    def _fault_of_block(self, block: Block, previous: int) -> Optional[str]:
        is_free = block.heap == 0
        least = k.kMinFreeBytes if is_free else k.kBlockHeaderBytes + k.kMinPayloadBytes
        if block.size % WORD != 0 or block.size < least:
            return (f"its size is {block.size}; a block's size is a multiple of 8 and at least "
                    f"{least}")
        if block.size > self.arena.size - block.offset:
            return f"its size is {block.size}, which leads past the end of the arena"
        if block.previous != previous:
            return f"it says that the block before it has {block.previous} bytes, not {previous}"
        if block.heap not in (0, self.arena.address):
            return f"its heap is {block.heap:#x}, neither this one nor null"
        if is_free:
            return self._fault_of_free(block)
        if block.next != 0 and block.offset not in self.parked:
            return f"it is in use, and the word before its payload is {block.next:#x}, not 0"
        return None

    def _fault_of_free(self, block: Block) -> Optional[str]:
        if self.blocks and self.blocks[-1].heap == 0:
            return "it is free, and so is the block before it"
        if block.bin >= k.kBins:
            return f"it is free, and its bin is {block.bin}; there are {k.kBins}"
        if block.bin != bin_of(block.size) and not self._is_whole_arena(block):
            return (f"it is free, and its bin is {block.bin}; its size of {block.size} bytes "
                    f"belongs to bin {bin_of(block.size)}")
        for name, link, back in (("next", block.next, 24), ("previous", block.prev, 16)):
            other = self.arena.offset_of(link)
            if other is None:
                return f"it is free, and its link to the {name} block is {link:#x}"
            if self.arena.word(other + back, WORD) != self.arena.address + block.offset:
                return f"it is free, and the {name} block at {link:#x} does not link back to it"
        return None

    def _is_whole_arena(self, block: Block) -> bool:
        return block.bin == k.kBins - 1 and block.size == self.arena.size - self.arena.first

    # ---- The heap's own tables ----

    def _fault_of_tables(self) -> Optional[Fault]:
        heap = self.arena.heap
        if heap.number("parked") != len(self.parked):
            return Fault(None, f"the heap counts {heap.number('parked')} parked blocks, and its "
                               f"quick lists have {len(self.parked)}")
        filled = {block.bin for block in self.free}
        distance = k.kBins
        for index, skip in reversed(list(enumerate(heap.numbers("skip", 1)))):
            distance = 0 if index in filled else distance
            if skip != distance:
                return Fault(None, f"the skip byte of bin {index} is {skip}, not {distance}")
            distance += 1
        return None


# ---- All heaps ----


def thread_heaps(process: Process) -> Iterator[int]:
    """Every heap of a slot, then the spare ones."""
    count = int.from_bytes(process.read(process.variable("kiv::threadHeapCount"), 4), "little",
                           signed=True)
    slot_bytes = process.layout("kiv::Slot").size
    slots = process.variable("kiv::slots")
    for index in range(max(0, min(count, k.kMaxThreadHeaps))):
        slot = process.record("kiv::Slot", slots + index * slot_bytes)
        yield slot.number("heap")
        if slot.number("current") != slot.number("heap"):
            yield slot.number("current")  # the slot is being exchanged
    yield from ring_of(process, process.number(process.variable("(anonymous namespace)::spares"), WORD))


def ring_of(process: Process, head: int) -> Iterator[int]:
    """The heaps of a ring."""
    heap = head
    for _ in range(MAX_HEAPS):
        if heap == 0:
            return
        yield heap
        heap = process.record("kiv::Heap", heap).number("ringNext")
        if heap == head:
            return


def find_heap(process: Process, address: int) -> int:
    """The heap that an address means: of a heap, or of a block's payload."""
    candidates = [address]
    try:
        block = process.record("kiv::Block", address - k.kBlockHeaderBytes)
        candidates.append(block.number("heap"))
    except CannotTell:
        pass
    for candidate in candidates:
        if candidate != 0 and candidate % WORD == 0 and is_heap(process, candidate):
            return candidate
    raise CannotTell(f"{address:#x} is neither the address of a heap nor of a block that a heap "
                     "handed out. Without an address, kiv-heap walks all thread heaps.")


def is_heap(process: Process, address: int) -> bool:
    """Whether a heap seems to be at the address."""
    try:
        heap = process.record("kiv::Heap", address)
    except CannotTell:
        return False
    size = heap.number("arenaEnd") - address
    index = heap.number("index")
    known = index < k.kMaxThreadHeaps or index in (k.kSpareHeapIndex, k.kShortHeapIndex)
    return size in ARENA_BYTES and size % WORD == 0 and known
