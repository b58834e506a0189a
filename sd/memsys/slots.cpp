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

std::array<Slot, kMaxThreadHeaps> kiv::slots;
Modulus kiv::slotCount;

namespace {

constexpr std::memory_order kRelaxed = std::memory_order_relaxed;

// Under the ring lock.
Heap* spares = nullptr;
int32_t initialBudget = 0;
int32_t remainingBudget = 0;

void* AllocateLocked(Heap* heap, uint32_t payloadBytes) {
  const SpinlockGuard guard(heap->lock);
  return AllocateFromHeap(heap, payloadBytes);
}

// Makes `heap`, which the slot names as its current one, the slot's own. The slot is being
// exchanged until the last store; nobody may find it settled and its heap without the index.
void TakeSlot(uint32_t number, Heap* heap) {
  heap->index.store(number, kRelaxed);
  slots[number].heap.store(heap, std::memory_order_release);
}

// A payload from one of the spare heaps, which the slot then names as its current heap.
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

// The heap is ready before any thread can find it; it is given out of before it takes the slot, so
// that the request that paid for it is served.
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
  heap->index.store(kSpareHeapIndex, kRelaxed);
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
    // Only now, under the lock: two threads that found the same heap dry would otherwise both
    // exchange it, and the slot would never settle.
    if (slot.heap.load(kRelaxed) != dry || slot.current.load(kRelaxed) != dry) {
      return {ExchangeOutcome::kRetry, nullptr};
    }
    dry->index.store(kSpareHeapIndex, kRelaxed);
    Heap* spare = nullptr;
    if (void* payload = AllocateFromSpares(request, dry, &spare)) {
      SwapWithSpare(request.slot, dry, spare);
      return {ExchangeOutcome::kServed, payload};
    }
    if (remainingBudget > 0) made = MakeThreadHeap();
    if (made == nullptr) {
      dry->index.store(request.slot, kRelaxed);
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
