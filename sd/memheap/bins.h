// The bins of a heap: rings of free blocks, and the table that finds the next bin with a block.
#ifndef KIV_MEMHEAP_BINS_H
#define KIV_MEMHEAP_BINS_H

#include "memheap/heap.h"

namespace kiv {

// Empties all bins and puts `whole` into the last one.
void FillLastBin(Heap* heap, Block* whole);

// Notes the size of a block that joined a filled bin or grew in it.
inline void RaiseBound(Heap* heap, uint32_t bin, uint32_t sizeBytes) {
  Block* head = heap->bins[bin];
  if (sizeBytes <= head->search) return;
  head->search = sizeBytes;
  if (sizeBytes >= heap->unservedBytes) heap->unservedBytes = sizeBytes + 1;
}

// Puts a free block at the tail of a bin.
void InsertIntoBin(Heap* heap, uint32_t bin, Block* block);

// Takes a free block out of its bin.
void RemoveFromBin(Heap* heap, Block* block);

// Moves a block to a lower bin. Has the effect of RemoveFromBin and InsertIntoBin, but updates the
// skip table below the new bin only once.
void MoveDown(Heap* heap, uint32_t bin, Block* block);

// Puts the block `with`, of which only the links and the bin are not set, in the place of `block`
// in its bin. Their memory must not overlap.
void ReplaceInBin(Heap* heap, Block* block, Block* with);

// Returns a block of at least sizeBytes bytes and leaves it in the bin; null if there is none. The
// bin must not be empty. Next fit: starts where the last search of this bin succeeded.
Block* SearchBin(Heap* heap, uint32_t bin, uint32_t sizeBytes);

// Returns a free block of at least sizeBytes bytes from any bin and leaves it there; null if there
// is none.
inline Block* FindFree(Heap* heap, uint32_t sizeBytes) {
  if (sizeBytes >= heap->unservedBytes) return nullptr;
  const uint32_t bin = BinOf(sizeBytes);
  if (heap->skip[bin].load(std::memory_order_relaxed) == 0) {
    if (Block* fitting = SearchBin(heap, bin, sizeBytes)) return fitting;
  }
  // Every block of a higher bin is large enough: take its head without a search.
  const uint32_t next = NextFilledBin(*heap, bin);
  if (next != kBins) return heap->bins[next];
  heap->unservedBytes = sizeBytes;
  return nullptr;
}

}  // namespace kiv

#endif
