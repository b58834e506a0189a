// The pool of spare short heaps.
#ifndef KIV_MEMSYS_SHORT_POOL_H
#define KIV_MEMSYS_SHORT_POOL_H

#include "memheap/heap.h"

namespace kiv {

// Empties the pool without releasing its heaps. Returns false if its lock cannot be made.
bool PrepareShortPool();

// Returns an initialised short heap, from the pool or new. Without memory it sends a message to the
// host and returns null.
Heap* ObtainShortHeap();

// Puts a heap into the pool, or frees it if the pool is full.
void ReleaseShortHeap(Heap* heap);

// Frees all heaps of the pool if no short heap is in use and the pool exceeds its limit. Called
// after an owner has ended.
void DrainShortPoolIfIdle();

}  // namespace kiv

#endif
