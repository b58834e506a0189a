// A ring may be long, and its blocks are in no cache of the processor. Walks are therefore avoided,
// and those that remain prefetch.
//
// Invariants:
//   I1. The search word of a bin's head is a bound: no block of the bin is larger.
//   I2. Heap::unservedBytes is above the bounds of all filled bins.
//
// A walk that finds nothing makes the bound exact. A search of all bins that finds nothing lowers
// unservedBytes to the size in question. Blocks that join a bin or grow raise both.
//
// The search word of any other block of a bin is a hint: walks leave in it the offset of a block
// kLead places further on, which the next walk prefetches. It may be out of date or meaningless,
// because nothing else depends on it.
#include "memheap/bins.h"

#include <algorithm>

#include "compiler.h"
#include "memheap/ring.h"
#include "require.h"

using namespace kiv;

namespace {

using BinRing = Ring<Block, &Block::next, &Block::prev>;

constexpr char kSource[] = "sd/memheap";
constexpr uint32_t kLineInsert = 982;
constexpr uint32_t kLineFind = 1055;

constexpr uint32_t kLead = 4;

// relaxed, here and below: probes read the table while it changes, and order nothing by it.
uint8_t Skip(const Heap& heap, uint32_t bin) {
  return heap.skip[bin].load(std::memory_order_relaxed);
}

void SetSkip(Heap* heap, uint32_t bin, uint32_t distance) {
  heap->skip[bin].store(static_cast<uint8_t>(distance), std::memory_order_relaxed);
}

bool IsEmpty(const Heap& heap, uint32_t bin) { return Skip(heap, bin) != 0; }

void MarkFilled(Heap* heap, uint32_t bin) {
  SetSkip(heap, bin, 0);
  for (uint32_t below = bin; below > 0 && IsEmpty(*heap, below - 1); --below) {
    SetSkip(heap, below - 1, bin - below + 1);
  }
}

void MarkEmpty(Heap* heap, uint32_t bin) {
  uint32_t distance = bin == kBins - 1 ? kBins : Skip(*heap, bin + 1) + 1U;
  SetSkip(heap, bin, distance);
  for (uint32_t below = bin; below > 0 && IsEmpty(*heap, below - 1); --below) {
    SetSkip(heap, below - 1, ++distance);
  }
}

// Makes another block of the bin its head.
void MakeHead(Heap* heap, Block* block) {
  Block*& head = heap->bins[block->bin];
  block->search = head->search;
  head = block;
}

// Makes a block the only one of a bin.
void Fill(Heap* heap, uint32_t bin, Block* block) {
  BinRing::MakeAlone(block);
  heap->bins[bin] = block;
  block->bin = bin;
  block->search = 0;
  RaiseBound(heap, bin, block->sizeBytes);
}

void RequireFree(const Block& block) {
  Require(block.heap == nullptr, "!CurrentBin->MemHeap", kSource, kLineFind);
}

void PrefetchHinted(const Heap* heap, const Block& block) {
  Prefetch(reinterpret_cast<const char*>(heap) + block.search);
}

void LeaveHint(const Heap* heap, Block* block, const Block* ahead) {
  const auto offset = static_cast<uint32_t>(reinterpret_cast<const char*>(ahead) -
                                            reinterpret_cast<const char*>(heap));
  if (block->search != offset) block->search = offset;  // writes only what changes
}

}  // namespace

void kiv::FillLastBin(Heap* heap, Block* whole) {
  constexpr uint32_t kLast = kBins - 1;
  Fill(heap, kLast, whole);
  for (uint32_t bin = 0; bin < kBins; ++bin) SetSkip(heap, bin, kLast - bin);
}

void kiv::InsertIntoBin(Heap* heap, uint32_t bin, Block* block) {
  Require(block->heap == nullptr, "!Bin->MemHeap", kSource, kLineInsert);
  if (IsEmpty(*heap, bin)) {
    Fill(heap, bin, block);
    MarkFilled(heap, bin);
    return;
  }
  BinRing::InsertBefore(heap->bins[bin], block);
  block->bin = bin;
  block->search = 0;
  RaiseBound(heap, bin, block->sizeBytes);
}

void kiv::RemoveFromBin(Heap* heap, Block* block) {
  if (BinRing::IsAlone(block)) {
    MarkEmpty(heap, block->bin);  // the head stays stale: it is not read while the bin is empty
    return;
  }
  BinRing::Remove(block);
  if (heap->bins[block->bin] == block) MakeHead(heap, block->next);
}

void kiv::MoveDown(Heap* heap, uint32_t bin, Block* block) {
  if (!BinRing::IsAlone(block)) {
    RemoveFromBin(heap, block);
    InsertIntoBin(heap, bin, block);
    return;
  }
  const uint32_t left = block->bin;
  InsertIntoBin(heap, bin, block);
  MarkEmpty(heap, left);  // stops at the bin that was filled above
}

void kiv::ReplaceInBin(Heap* heap, Block* block, Block* with) {
  BinRing::Replace(block, with);
  with->bin = block->bin;
  with->search = block->search;
  if (heap->bins[block->bin] == block) heap->bins[block->bin] = with;
  RaiseBound(heap, with->bin, with->sizeBytes);
}

Block* kiv::SearchBin(Heap* heap, uint32_t bin, uint32_t sizeBytes) {
  Block* const head = heap->bins[bin];
  RequireFree(*head);
  if (head->search < sizeBytes) return nullptr;
  Block* behind = head;
  uint32_t largestBytes = 0;
  uint32_t steps = 0;
  Block* current = head;
  while (current->sizeBytes < sizeBytes) {
    largestBytes = std::max(largestBytes, current->sizeBytes);
    current = current->next;
    if (current == head) {
      head->search = largestBytes;
      return nullptr;
    }
    RequireFree(*current);
    PrefetchHinted(heap, *current);
    if (++steps > kLead) {
      behind = behind->next;
      LeaveHint(heap, behind, current);
    }
  }
  if (current != head) MakeHead(heap, current);
  return current;
}
