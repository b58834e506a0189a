#include "memheap/bins.h"

#include "memheap/ring.h"
#include "require.h"

using namespace kiv;

namespace {

using BinRing = Ring<Block, &Block::next, &Block::prev>;

constexpr char kSource[] = "sd/memheap";
constexpr uint32_t kLineInsert = 982;
constexpr uint32_t kLineFind = 1055;

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

}  // namespace

void kiv::FillLastBin(Heap* heap, Block* whole) {
  constexpr uint32_t kLast = kBins - 1;
  BinRing::MakeAlone(whole);
  whole->bin = kLast;
  heap->bins[kLast] = whole;
  for (uint32_t bin = 0; bin < kBins; ++bin) SetSkip(heap, bin, kLast - bin);
}

void kiv::InsertIntoBin(Heap* heap, uint32_t bin, Block* block) {
  Require(block->heap == nullptr, "!Bin->MemHeap", kSource, kLineInsert);
  if (IsEmpty(*heap, bin)) {
    BinRing::MakeAlone(block);
    heap->bins[bin] = block;
    MarkFilled(heap, bin);
  } else {
    BinRing::InsertBefore(heap->bins[bin], block);
  }
  block->bin = bin;
}

void kiv::RemoveFromBin(Heap* heap, Block* block) {
  if (BinRing::IsAlone(block)) {
    MarkEmpty(heap, block->bin);  // the head stays stale: it is not read while the bin is empty
    return;
  }
  BinRing::Remove(block);
  if (heap->bins[block->bin] == block) heap->bins[block->bin] = block->next;
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
  if (heap->bins[block->bin] == block) heap->bins[block->bin] = with;
}

Block* kiv::SearchBin(Heap* heap, uint32_t bin, uint32_t sizeBytes) {
  Block* const head = heap->bins[bin];
  Block* current = head;
  do {
    Require(current->heap == nullptr, "!CurrentBin->MemHeap", kSource, kLineFind);
    if (current->sizeBytes >= sizeBytes) {
      heap->bins[bin] = current;
      return current;
    }
    current = current->next;
  } while (current != head);
  return nullptr;
}
