// Direct requests: those that find the heap unlocked and are served by its fast path. Nearly all
// requests are direct. A request that has locked the heap in vain keeps it locked, and a function
// here finishes it, so that no request locks its heap twice.
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

// What an attempt left. Without `served` and `locked`, only the functions in thread_heaps.h can serve
// the request.
template <typename Served>
struct DirectAnswer {
  Served served;
  Heap* locked;  // not null: the heap could not serve the request at once, and is locked
};

// SlotAllocate for a size that may be direct. `served` is the payload or null.
KIV_ALWAYS_INLINE DirectAnswer<void*> TrySlotAllocate(uint32_t number, uint32_t sizeBytes) {
  const Slot& slot = slots[number];
  Heap* heap = slot.heap.load(std::memory_order_acquire);
  if (slot.current.load(std::memory_order_acquire) != heap) return {};
  if (!TryLock(heap)) return {};
  // The heap may have been exchanged before it was locked.
  const bool servesSlot = heap->index.load(std::memory_order_relaxed) == number;
  void* payload = servesSlot ? TryAllocate(heap, sizeBytes) : nullptr;
  if (servesSlot && payload == nullptr) return {nullptr, heap};
  ReleaseHeldOnce(heap->lock);
  return {payload, nullptr};
}

// Finishes a request that TrySlotAllocate left with a locked heap. Null if the heap has no room.
inline void* AllocateInLocked(Heap* heap, uint32_t sizeBytes) {
  void* payload = AllocateFromHeap(heap, PayloadBytes(sizeBytes));
  ReleaseHeldOnce(heap->lock);
  return payload;
}

// ThreadHeapFree. The payload must not be null. `served` tells whether the block is free.
KIV_ALWAYS_INLINE DirectAnswer<bool> TryThreadHeapFree(void* payload) {
  if (IsLarge(payload) || memorySettings.blockStatistics) return {};
  Block* block = BlockOf(payload);
  Heap* heap = block->heap;
  if (IsShort(*heap)) return {TryFree(heap, block), nullptr};
  if (!TryLock(heap)) return {};
  if (!TryFree(heap, block)) return {false, heap};
  ReleaseHeldOnce(heap->lock);
  return {true, nullptr};
}
}  // namespace kiv

#endif
