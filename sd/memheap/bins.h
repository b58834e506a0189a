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

// Gives the place of one block in its bin to another. Their memory must not overlap.
void ReplaceInBin(Heap* heap, Block* block, Block* with);

// A free block of at least sizeBytes bytes, still in its bin; null if there is none.
Block* FindFree(Heap* heap, uint32_t sizeBytes);

}  // namespace kiv

#endif
