#include "memsys/thread_heaps.h"

#include <algorithm>

#include "kivsdu/memory.h"
#include "kivsdu/status.h"
#include "kivsdu/thread.h"
#include "memsys/accounting.h"
#include "memsys/allocation_clock.h"
#include "memsys/large_block.h"
#include "memsys/messages.h"
#include "memsys/settings.h"
#include "memsys/slots.h"
#include "memsys/statistics.h"
#include "sdsync/spinlock.h"
#include "sdsync/spinlock_guard.h"

using namespace kiv;

Relaxed<int32_t> kiv::threadHeapCount;

namespace {

// ---- Allocating ----

// The payload from a slot, or null, and the heap that was tried last.
struct SlotAnswer {
  void* payload;
  Heap* heap;
};

SlotAnswer TrySlot(const SlotRequest& request) {
  for (;;) {
    Heap* heap = SettledHeap(request.slot);
    if (!MayServe(*heap, request.bin)) return {nullptr, heap};
    {
      const SpinlockGuard guard(heap->lock);
      if (heap->index.load(std::memory_order_relaxed) == request.slot) {
        return {AllocateFromHeap(heap, request.payloadBytes), heap};
      }
    }
    // The heap was exchanged meanwhile. Yield: the exchanging thread may be waiting for a
    // processor.
    static_cast<void>(KivSdThreadYield(nullptr));
  }
}

void* TryOtherSlots(SlotRequest request) {
  const uint32_t own = request.slot;
  const auto count = static_cast<uint32_t>(threadHeapCount);
  for (request.slot = 0; request.slot < count; ++request.slot) {
    if (request.slot == own) continue;
    if (void* payload = TrySlot(request).payload) return payload;
  }
  return nullptr;
}

void* AllocateFromSlots(const SlotRequest& request) {
  for (;;) {
    const SlotAnswer answer = TrySlot(request);
    if (answer.payload != nullptr) return answer.payload;
    const Exchanged exchanged = ExchangeHeap(request, answer.heap);
    if (exchanged.outcome == ExchangeOutcome::kServed) return exchanged.payload;
    if (exchanged.outcome == ExchangeOutcome::kNoHeap) return TryOtherSlots(request);
  }
}

// ---- Reallocating ----

void* AllocateAndCopy(uint64_t seed, void* payload, uint64_t oldBytes, uint64_t sizeBytes) {
  void* made = ThreadHeapAllocate(seed, sizeBytes);
  if (made == nullptr) return nullptr;
  KivSdMemCopy(nullptr, made, payload, static_cast<uint32_t>(std::min(oldBytes, sizeBytes)));
  CountAllocated(sizeBytes);
  static_cast<void>(ThreadHeapFree(payload));
  return made;
}

void* ResizeLarge(uint64_t seed, LargeBlock* block, uint64_t sizeBytes) {
  // Compatibility: the old size is counted as freed here and again if the block moves. Hosts know
  // these counts.
  CountFreed(block->sizeBytes);
  if (sizeBytes <= memorySettings.largestBlockBytes) {
    return AllocateAndCopy(seed, PayloadOf(block), block->sizeBytes, sizeBytes);
  }
  LargeBlock* resized = ReallocateLarge(block, sizeBytes);
  if (resized == nullptr) return nullptr;
  CountAllocated(sizeBytes);
  return PayloadOf(resized);
}

void* ResizeInHeap(Block* block, uint32_t sizeBytes) {
  Heap* heap = block->heap;
  if (IsShort(*heap)) return ReallocateInHeap(heap, PayloadOf(block), sizeBytes);
  const SpinlockGuard guard(heap->lock);
  return ReallocateInHeap(heap, PayloadOf(block), sizeBytes);
}

void* ResizeHeapBlock(uint64_t seed, Block* block, uint64_t sizeBytes) {
  const uint32_t oldBytes = block->sizeBytes - kBlockHeaderBytes;
  CountFreed(oldBytes);
  if (sizeBytes <= memorySettings.largestBlockBytes) {
    if (void* resized = ResizeInHeap(block, static_cast<uint32_t>(sizeBytes))) {
      CountAllocated(sizeBytes);
      return resized;
    }
  }
  return AllocateAndCopy(seed, PayloadOf(block), oldBytes, sizeBytes);
}

// ---- Freeing ----

void FreeHeapBlock(Block* block) {
  CountFreed(block->sizeBytes - kBlockHeaderBytes);
  Heap* heap = block->heap;
  if (IsShort(*heap)) {
    FreeToHeap(heap, PayloadOf(block));
    return;
  }
  const SpinlockGuard guard(heap->lock);
  FreeToHeap(heap, PayloadOf(block));
}

bool IsAligned(const Heap* heap) { return reinterpret_cast<uintptr_t>(heap) % 8 == 0; }

}  // namespace

void kiv::SetThreadHeapCount(int32_t count) {
  threadHeapCount = count;
  SetMemoryMode(kHeapsMode, count > 0);
}

bool kiv::MakeThreadHeaps(int32_t count) {
  PrepareSpareHeaps(memorySettings.heapBudget, count + kSpareHeaps);
  slotCount = NarrowModulus(static_cast<uint32_t>(count));
  for (int32_t i = 0; i < count; ++i) {
    Heap* heap = MakeThreadHeap();
    if (heap == nullptr) return false;
    heap->index.store(static_cast<uint32_t>(i), std::memory_order_relaxed);
    slots[static_cast<size_t>(i)].Settle(heap);
  }
  for (int32_t i = 0; i < kSpareHeaps; ++i) {
    Heap* heap = MakeThreadHeap();
    if (heap == nullptr || (i == 0 && !IsAligned(heap))) return false;
    AddSpareHeap(heap);
  }
  return true;
}

void* kiv::ThreadHeapAllocate(uint64_t seed, uint64_t sizeBytes) {
  if (sizeBytes > memorySettings.largestBlockBytes) return AllocateLarge(sizeBytes);
  return SlotAllocate(SlotOf(seed, allocationClock.Advance(OwnTicks())),
                      static_cast<uint32_t>(sizeBytes));
}

void* kiv::SlotAllocate(uint32_t slot, uint32_t sizeBytes) {
  const uint32_t payloadBytes = PayloadBytes(sizeBytes);
  void* payload = AllocateFromSlots({slot, payloadBytes, BinOf(payloadBytes)});
  return payload != nullptr ? payload : AllocateLarge(sizeBytes);
}

uint32_t kiv::ThreadHeapFree(void* payload) {
  if (payload == nullptr) return KIV_ST_OK;
  if (IsLarge(payload)) {
    LargeBlock* block = LargeBlockOf(payload);
    CountFreed(block->sizeBytes);
    FreeLarge(block);
  } else {
    FreeHeapBlock(BlockOf(payload));
  }
  return KIV_ST_OK;
}

uint32_t kiv::FreeInLockedHeap(Heap* heap, void* payload) {
  FreeToHeap(heap, payload);
  ReleaseHeldOnce(heap->lock);
  return KIV_ST_OK;
}

void* kiv::ThreadHeapReallocate(uint64_t seed, void* payload, uint64_t sizeBytes) {
  if (payload == nullptr) return ThreadHeapAllocate(seed, sizeBytes);
  return IsLarge(payload) ? ResizeLarge(seed, LargeBlockOf(payload), sizeBytes)
                          : ResizeHeapBlock(seed, BlockOf(payload), sizeBytes);
}
