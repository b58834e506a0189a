// Direct requests: those that thread heaps and short heaps serve at once, because the heap is free
// and its first look finds a block. Nearly all requests are direct. Each function here returns null
// or false, with nothing changed, if only the function in thread_heaps.h can serve the request.
#ifndef KIV_MEMSYS_DIRECT_REQUEST_H
#define KIV_MEMSYS_DIRECT_REQUEST_H

#include <cstdint>

#include "compiler.h"
#include "memheap/heap_fast_path.h"
#include "memsys/settings.h"
#include "memsys/slots.h"
#include "os/thread.h"
#include "sdsync/spinlock.h"

namespace kiv {

// Whether a request for this many bytes, not 0, may be direct.
inline bool MayBeDirect(uint64_t sizeBytes) { return sizeBytes <= memorySettings.directBytes; }

// Calls nothing, so that its callers keep no registers.
inline bool TryLock(const Heap* heap) {
  const uint32_t thread = os::KnownThreadId();
  return thread != 0 && TryAcquireOwnLock(heap->lock, thread);
}

// SlotAllocate for a size that may be direct.
KIV_ALWAYS_INLINE void* TrySlotAllocate(uint32_t number, uint32_t sizeBytes) {
  const Slot& slot = slots[number];
  Heap* heap = slot.heap.load(std::memory_order_acquire);
  if (slot.current.load(std::memory_order_acquire) != heap) return nullptr;
  if (!TryLock(heap)) return nullptr;
  // The heap may have been exchanged before it was locked.
  const bool servesSlot = heap->index.load(std::memory_order_relaxed) == number;
  void* payload = servesSlot ? TryAllocate(heap, sizeBytes) : nullptr;
  ReleaseTriedLock(heap->lock);
  return payload;
}

// ThreadHeapFree. The payload must not be null.
KIV_ALWAYS_INLINE bool TryThreadHeapFree(void* payload) {
  if (IsLarge(payload) || memorySettings.blockStatistics) return false;
  Block* block = BlockOf(payload);
  Heap* heap = block->heap;
  if (IsShort(*heap)) return TryFree(heap, block);
  if (!TryLock(heap)) return false;
  const bool freed = TryFree(heap, block);
  ReleaseTriedLock(heap->lock);
  return freed;
}

}  // namespace kiv

#endif
