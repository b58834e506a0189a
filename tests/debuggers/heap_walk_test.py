"""Breaks a small heap in every way and checks that the walk names the first broken block."""

import pathlib
import struct
import sys
import unittest

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[2] / "debuggers"))
# pylint: disable=wrong-import-position
from kivsdu_debug import heaps
from kivsdu_debug import constants as k
from kivsdu_debug.process import CannotTell, Layout, Process

BASE = 0x10000
HEAP = Layout(504, {
    "lock": (0, 8), "lockIdentifier": (8, 4), "quick": (16, 160), "bins": (176, 256),
    "arenaEnd": (432, 8), "parked": (440, 4), "skip": (444, 32), "ringNext": (480, 8),
    "ringPrev": (488, 8), "index": (496, 4)})
BLOCK = Layout(40, {"sizeBytes": (0, 4), "previousBytes": (4, 4), "heap": (8, 8), "next": (16, 8),
                    "prev": (24, 8), "bin": (32, 4)})

# Offsets: a block in use, a parked one, a free one, and one in use at the end.
USED, PARKED, FREE, LAST = 504, 504 + 64, 504 + 64 + 48, 504 + 64 + 48 + 400
END = LAST + 64
FREE_BIN = 400 // 128


class SmallHeap(Process):
    """A process whose only memory is a heap."""

    def __init__(self):
        super().__init__()
        self.memory = bytearray(END)
        self.put(432, "<Q", BASE + END)
        self.put(440, "<I", 1)
        self.put(496, "<I", k.kShortHeapIndex)
        self.put(16 + 8 * 2, "<Q", BASE + PARKED)  # the list of payloads of 24 bytes
        self.put(176 + 8 * FREE_BIN, "<Q", BASE + FREE)
        for index in range(k.kBins):
            distance = FREE_BIN - index if index <= FREE_BIN else 2 * k.kBins - 1 - index
            self.put(444 + index, "<B", distance)
        self.put(USED, "<IIQQ", 64, 0, BASE, 0)
        self.put(PARKED, "<IIQQ", 48, 64, BASE, 0)
        self.put(FREE, "<IIQQQI", 400, 48, 0, BASE + FREE, BASE + FREE, FREE_BIN)
        self.put(LAST, "<IIQQ", 64, 400, BASE, 0)

    def put(self, offset, form, *values):
        """Writes numbers into the heap."""
        struct.pack_into(form, self.memory, offset, *values)

    def walk(self):
        """Walks the heap."""
        return heaps.Walk(heaps.Arena(self, BASE))

    def read(self, address, size):
        if address < BASE or address + size > BASE + END:
            raise CannotTell("outside")
        return bytes(self.memory[address - BASE:address - BASE + size])

    def _find_layout(self, name):
        return {"kiv::Heap": HEAP, "kiv::Block": BLOCK}.get(name)

    def _find_variable(self, name):
        return None

    def enumerators(self, name):
        return {}

    def thread_numbers(self):
        return {}

    def threads_inside(self):
        return []


class HeapWalkTest(unittest.TestCase):
    """Each test breaks one thing."""

    def setUp(self):
        self.heap = SmallHeap()

    def expect(self, offset, text):
        """The walk must find this fault."""
        fault = self.heap.walk().fault
        self.assertIsNotNone(fault)
        self.assertEqual(fault.offset, offset)
        self.assertIn(text, fault.text)

    def test_finds_nothing_in_a_whole_heap(self):
        """Totals of a heap without a fault."""
        walk = self.heap.walk()
        self.assertIsNone(walk.fault)
        self.assertEqual([block.offset for block in walk.in_use], [USED, LAST])
        self.assertEqual(walk.parked, {PARKED})
        self.assertEqual([block.offset for block in walk.free], [FREE])

    def test_sizes(self):
        """Sizes that no block has."""
        for size, text in ((0, "its size is 0"), (44, "multiple of 8"), (40, "at least 48"),
                           (1 << 20, "past the end"), (0x41414141, "multiple of 8")):
            with self.subTest(size=size):
                self.heap = SmallHeap()
                self.heap.put(USED, "<I", size)
                self.expect(USED, text)

    def test_size_of_the_block_before(self):
        """The tag of the block before."""
        self.heap.put(LAST + 4, "<I", 392)
        self.expect(LAST, "has 392 bytes, not 400")

    def test_foreign_heap(self):
        """An owner that is another heap."""
        self.heap.put(USED + 8, "<Q", BASE + 8)
        self.expect(USED, "neither this one nor null")

    def test_word_before_the_payload(self):
        """A write just before a payload."""
        self.heap.put(LAST + 16, "<Q", 7)
        self.expect(LAST, "the word before its payload is 0x7")

    def test_free_neighbours(self):
        """Two free blocks that were not merged."""
        self.heap.put(LAST + 8, "<QQQI", 0, BASE + LAST, BASE + LAST, 0)
        self.expect(LAST, "so is the block before it")

    def test_bin(self):
        """A bin that does not exist, and one for another size."""
        self.heap.put(FREE + 32, "<I", k.kBins)
        self.expect(FREE, "its bin is 32")
        self.heap.put(FREE + 32, "<I", 0)
        self.expect(FREE, "belongs to bin 3")

    def test_links_of_a_free_block(self):
        """Links out of the arena, and links that do not come back."""
        self.heap.put(FREE + 16, "<Q", BASE + END)
        self.expect(FREE, "its link to the next block")
        self.heap.put(FREE + 16, "<Q", BASE + USED)
        self.expect(FREE, "does not link back")
        self.heap.put(LAST + 24, "<Q", BASE + FREE)
        self.heap.put(FREE + 16, "<QQ", BASE + LAST, 12)
        self.expect(FREE, "its link to the previous block")

    def test_quick_lists(self):
        """A link out of the arena, a block of another size, and a block that is there twice."""
        self.heap.put(PARKED + 16, "<Q", 1)
        self.expect(PARKED, "leads out of the arena")
        self.heap.put(PARKED + 16, "<Q", BASE + PARKED)
        self.expect(PARKED, "freed twice")
        self.heap.put(PARKED + 16, "<Q", BASE + USED)
        self.expect(USED, "whose blocks have 48 bytes")

    def test_tables(self):
        """The heap's own numbers."""
        self.heap.put(440, "<I", 2)
        self.expect(None, "counts 2 parked blocks")
        self.heap.put(440, "<I", 1)
        self.heap.put(444 + 1, "<B", 0)
        self.expect(None, "skip byte of bin 1")

    def test_not_a_heap(self):
        """An address where no heap is, and a block's payload."""
        with self.assertRaises(CannotTell):
            heaps.find_heap(self.heap, BASE + USED)
        self.assertEqual(heaps.find_heap(self.heap, BASE + USED + k.kBlockHeaderBytes), BASE)


if __name__ == "__main__":
    unittest.main()
