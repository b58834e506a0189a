// The bins of a heap: rings of free blocks, and the table that finds the next bin with a block.
#ifndef KIV_MEMHEAP_BINS_H
#define KIV_MEMHEAP_BINS_H

#include "memheap/heap.h"

namespace kiv {

// All bins empty but the last, whose one block is `whole`.
void FillLastBin(Heap* heap, Block* whole);

// Puts a free block at the tail of a bin.
void InsertIntoBin(Heap* heap, uint32_t bin, Block* block);

// Takes a free block out of its bin.
void RemoveFromBin(Heap* heap, Block* block);

// Puts a block into a lower bin than it lies in: what both of the above do, but bins below the new
// one learn once where the next filled one is.
void MoveDown(Heap* heap, uint32_t bin, Block* block);

// Gives the place of one block in its bin to another. Their memory must not overlap.
void ReplaceInBin(Heap* heap, Block* block, Block* with);

// A free block of at least sizeBytes bytes of a bin that has blocks, still in it; null if there is
// none. First fit from where the last search of this bin succeeded (next fit).
Block* SearchBin(Heap* heap, uint32_t bin, uint32_t sizeBytes);

// The same of all bins.
inline Block* FindFree(Heap* heap, uint32_t sizeBytes) {
  const uint32_t bin = BinOf(sizeBytes);
  if (heap->skip[bin].load(std::memory_order_relaxed) == 0) {
    if (Block* fitting = SearchBin(heap, bin, sizeBytes)) return fitting;
  }
  // Any block of a higher bin is large enough: none of them is searched.
  const uint32_t next = NextFilledBin(*heap, bin);
  return next == kBins ? nullptr : heap->bins[next];
}

}  // namespace kiv

#endif
