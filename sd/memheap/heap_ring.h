// The rings of heaps: spare thread heaps, an owner's short heaps, the pool of spare short heaps.
#ifndef KIV_MEMHEAP_HEAP_RING_H
#define KIV_MEMHEAP_HEAP_RING_H

#include "memheap/heap.h"
#include "memheap/ring.h"

namespace kiv {

using HeapRing = Ring<Heap, &Heap::ringNext, &Heap::ringPrev>;

// Adds a heap at the tail of the ring that starts at *head.
inline void AppendHeap(Heap** head, Heap* heap) {
  if (*head == nullptr) {
    HeapRing::MakeAlone(heap);
    *head = heap;
  } else {
    HeapRing::InsertBefore(*head, heap);
  }
}

}  // namespace kiv

#endif
