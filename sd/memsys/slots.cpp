#include "memsys/slots.h"

#include <algorithm>

#include "kivsdu/thread.h"
#include "memheap/heap_ring.h"
#include "memsys/accounting.h"
#include "memsys/locks.h"
#include "memsys/thread_heaps.h"
#include "sdsync/spinlock.h"
#include "sdsync/spinlock_guard.h"

using namespace kiv;

namespace {

// Guarded by the ring lock.
Heap* spares = nullptr;
int32_t initialBudget = 0;
int32_t remainingBudget = 0;

void* AllocateLocked(Heap* heap, uint32_t payloadBytes) {
  const SpinlockGuard guard(heap->lock);
  return AllocateFromHeap(heap, payloadBytes);
}

// Makes the slot's current heap its own. The second store ends the exchange and therefore comes
// last: a thread must not find the slot settled before its heap has the slot's index.
void TakeSlot(uint32_t number, Heap* heap) {
  heap->index.store(number, std::memory_order_relaxed);
  slots[number].heap.store(heap, std::memory_order_release);
}

// Allocates from the first spare heap with room, which becomes the slot's current heap. Returns
// null if no spare heap has room.
void* AllocateFromSpares(const SlotRequest& request, Heap* dry, Heap** served) {
  Slot& slot = slots[request.slot];
  Heap* spare = spares;
  do {
    if (MayServe(*spare, request.bin)) {
      slot.current.store(spare, std::memory_order_release);
      if (void* payload = AllocateLocked(spare, request.payloadBytes)) {
        *served = spare;
        return payload;
      }
      slot.current.store(dry, std::memory_order_release);
    }
    spare = spare->ringNext;
  } while (spare != spares);
  return nullptr;
}

void SwapWithSpare(uint32_t number, Heap* dry, Heap* spare) {
  HeapRing::Replace(spare, dry);
  spares = dry->ringNext;
  TakeSlot(number, spare);
}

// Allocates from the new heap before it takes the slot, so that other threads cannot use up its
// room before the request that made it is served.
Exchanged AllocateFromNew(const SlotRequest& request, Heap* made) {
  void* payload = AllocateLocked(made, request.payloadBytes);
  TakeSlot(request.slot, made);
  return {ExchangeOutcome::kServed, payload};
}

}  // namespace

Heap* kiv::AwaitSettledHeap(const Slot& slot) {
  for (;;) {
    Heap* heap = slot.heap.load(std::memory_order_acquire);
    if (slot.current.load(std::memory_order_acquire) == heap) return heap;
    static_cast<void>(KivSdThreadYield(nullptr));
  }
}

uint64_t kiv::StartPrimePeriod(uint64_t ticks) {
  const uint64_t number = ticks / kTicksPerPrime;
  const uint64_t period =
      (number * kTicksPerPrime) << kPrimeIndexBits | (number % kSlotPrimes.size());
  allocationClock.StartPeriod(period);
  return period;
}

void kiv::PrepareSpareHeaps(int32_t heaps, int32_t made) {
  spares = nullptr;
  initialBudget = std::max(heaps, made);
  remainingBudget = initialBudget - made;
}

void kiv::AddSpareHeap(Heap* heap) { AppendHeap(&spares, heap); }

Heap* kiv::MakeThreadHeap() {
  void* arena = AccountedAllocate(memorySettings.heapBytes);
  if (arena == nullptr) return nullptr;
  KivSdSpinlock* lock = CreatePlainSpinlock();
  auto* heap = static_cast<Heap*>(arena);
  InitializeHeap(heap, memorySettings.heapBytes, lock);
  heap->index.store(kSpareHeapIndex, std::memory_order_relaxed);
  if (lock != nullptr) return heap;
  AccountedFree(arena);
  return nullptr;
}

Exchanged kiv::ExchangeHeap(const SlotRequest& request, Heap* dry) {
  KivSdSpinlock* ring = memoryLocks.ring;
  Slot& slot = slots[request.slot];
  Heap* made = nullptr;
  {
    const SpinlockGuard guard(ring);
    // Checked under the lock: otherwise two threads that found the same heap dry could both
    // exchange it, and the slot would never settle.
    if (slot.heap.load(std::memory_order_relaxed) != dry ||
        slot.current.load(std::memory_order_relaxed) != dry) {
      return {ExchangeOutcome::kRetry, nullptr};
    }
    dry->index.store(kSpareHeapIndex, std::memory_order_relaxed);
    Heap* spare = nullptr;
    if (void* payload = AllocateFromSpares(request, dry, &spare)) {
      SwapWithSpare(request.slot, dry, spare);
      return {ExchangeOutcome::kServed, payload};
    }
    if (remainingBudget > 0) made = MakeThreadHeap();
    if (made == nullptr) {
      dry->index.store(request.slot, std::memory_order_relaxed);
      return {ExchangeOutcome::kNoHeap, nullptr};
    }
    slot.current.store(made, std::memory_order_release);
    AddSpareHeap(dry);
    --remainingBudget;
  }
  return AllocateFromNew(request, made);
}

int32_t kiv::InitialHeapBudget() { return initialBudget; }

uint64_t kiv::BytesInThreadHeaps() {
  const SpinlockGuard guard(memoryLocks.ring);
  return static_cast<uint64_t>(int64_t{initialBudget} - remainingBudget) * memorySettings.heapBytes;
}
