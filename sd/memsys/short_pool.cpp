// A heap in the pool is not cleaned. It keeps the index of a short heap, from which its release
// knows how many bytes to subtract from the totals.
#include "memsys/short_pool.h"

#include "memheap/heap_ring.h"
#include "memsys/accounting.h"
#include "memsys/locks.h"
#include "memsys/messages.h"
#include "memsys/relaxed.h"
#include "memsys/settings.h"
#include "memsys/statistics.h"
#include "sdsync/spinlock_guard.h"

using namespace kiv;

namespace {

// Written under the short-pool lock. The count is first read without it.
struct ShortPool {
  Heap* head;
  Relaxed<int32_t> count;
  int32_t inUse;
};
ShortPool pool;

Heap* Pop() {
  Heap* heap = pool.head;
  pool.head = HeapRing::IsAlone(heap) ? nullptr : heap->ringNext;
  HeapRing::Remove(heap);
  pool.count -= 1;
  return heap;
}

void Push(Heap* heap) {
  AppendHeap(&pool.head, heap);
  pool.count += 1;
}

void AddToUse(int32_t addend) {
  const SpinlockGuard guard(memoryLocks.shortPool);
  pool.inUse += addend;
}

// Returns null if another thread took the last heap meanwhile. The heap that the caller then makes
// is already counted as in use.
Heap* TakeFromPool() {
  const SpinlockGuard guard(memoryLocks.shortPool);
  ++pool.inUse;
  return pool.head == nullptr ? nullptr : Pop();
}

// Makes a new arena. `counted`: it is already counted as in use.
Heap* MakeArena(bool counted) {
  void* arena = AccountedAllocate(memorySettings.shortHeapBytes);
  if (arena != nullptr) {
    if (!counted) AddToUse(1);
    CountAllocated(memorySettings.shortHeapBytes);
  } else if (counted) {
    AddToUse(-1);
  }
  return static_cast<Heap*>(arena);
}

Heap* TakeArena() {
  const bool mayBePooled = pool.count != 0;
  if (mayBePooled) {
    if (Heap* heap = TakeFromPool()) return heap;
  }
  return MakeArena(mayBePooled);
}

bool PoolHasRoom() { return pool.count < memorySettings.shortPoolMost; }

// Returns false if the pool filled up meanwhile. The heap no longer counts as in use either way.
bool ReturnToPool(Heap* heap) {
  const SpinlockGuard guard(memoryLocks.shortPool);
  --pool.inUse;
  if (!PoolHasRoom()) return false;
  Push(heap);
  return true;
}

void ReleaseArena(Heap* heap) {
  AccountedFree(heap);
  CountFreed(memorySettings.shortHeapBytes);
}

}  // namespace

bool kiv::PrepareShortPool() {
  pool.head = nullptr;
  pool.count = 0;
  pool.inUse = 0;
  return EnsureMemoryLock(&memoryLocks.shortPool);
}

Heap* kiv::ObtainShortHeap() {
  Heap* heap = TakeArena();
  if (heap == nullptr) {
    ReportFailedRequest(memorySettings.shortHeapBytes);
    return nullptr;
  }
  SendPendingWarning();
  InitializeHeap(heap, memorySettings.shortHeapBytes, nullptr);
  heap->index.store(kShortHeapIndex, std::memory_order_relaxed);
  return heap;
}

void kiv::ReleaseShortHeap(Heap* heap) {
  if (memorySettings.shortPoolMost != 0 && PoolHasRoom()) {
    if (!ReturnToPool(heap)) ReleaseArena(heap);
    return;
  }
  AccountedFree(heap);
  AddToUse(-1);
  CountFreed(memorySettings.shortHeapBytes);
}

void kiv::DrainShortPoolIfIdle() {
  const SpinlockGuard guard(memoryLocks.shortPool);
  if (pool.inUse != 0 || pool.count <= memorySettings.shortPoolDrainedAbove) return;
  while (pool.head != nullptr) ReleaseArena(Pop());
}
