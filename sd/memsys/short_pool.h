// The pool of spare short heaps.
#ifndef KIV_MEMSYS_SHORT_POOL_H
#define KIV_MEMSYS_SHORT_POOL_H

#include "memheap/heap.h"

namespace kiv {

// Empties the pool, without releasing its heaps. False when its lock cannot be made.
bool PrepareShortPool();

// A short heap, initialised, from the pool or new; null without memory, of which the host is told.
Heap* ObtainShortHeap();

// To the pool, or to the system when the pool is full.
void ReleaseShortHeap(Heap* heap);

// After an owner has ended: releases a pool that has grown too large, once no heap is in use.
void DrainShortPoolIfIdle();

}  // namespace kiv

#endif
