// The memory manager's entry points for both modes.
#include <cstring>

#include "compiler.h"
#include "kivsdu/manager.h"
#include "kivsdu/status.h"
#include "memheap/switches.h"
#include "memsys/allocation_clock.h"
#include "memsys/direct_request.h"
#include "memsys/messages.h"
#include "memsys/plain.h"
#include "memsys/statistics.h"
#include "memsys/thread_heaps.h"
#include "os/heap.h"
#include "require.h"

using namespace kiv;

MemorySwitches kiv::memorySwitches;

namespace {

constexpr char kSource[] = "sd/memheap";
constexpr uint32_t kLineAligned = 348;

// Returns the key that chooses the slot: the owner, or `instead` if the owner is null.
uint64_t SlotKey(const void* owner, const void* instead) {
  return reinterpret_cast<uint64_t>(owner != nullptr ? owner : instead);
}

// ---- Thread heaps ----

uint32_t FinishInHeaps(const void* made, uint64_t sizeBytes) {
  if (made == nullptr) {
    ReportFailedRequest(sizeBytes);
    return KIV_ST_OUT_OF_MEMORY;
  }
  SendPendingWarning();
  return KIV_ST_OK;
}

KIV_NOINLINE uint32_t FinishAllocation(void* made, uint64_t sizeBytes, void** block) {
  *block = made;
  if (made != nullptr) CountAllocated(sizeBytes);
  return FinishInHeaps(made, sizeBytes);
}

KIV_NOINLINE uint32_t AllocateInSlot(uint32_t slot, uint32_t sizeBytes, void** block) {
  return FinishAllocation(SlotAllocate(slot, sizeBytes), sizeBytes, block);
}

KIV_NOINLINE uint32_t AllocateAtTick(uint64_t key, uint64_t ticks, uint32_t sizeBytes,
                                     void** block) {
  return AllocateInSlot(SlotOf(key, ticks), sizeBytes, block);
}

KIV_NOINLINE uint32_t AllocateAtDrawnTick(uint64_t key, uint32_t sizeBytes, void** block) {
  return AllocateAtTick(key, allocationClock.Draw(OwnTicks()), sizeBytes, block);
}

KIV_NOINLINE uint32_t AllocateAnySize(uint64_t key, uint64_t sizeBytes, void** block) {
  return FinishAllocation(ThreadHeapAllocate(key, sizeBytes), sizeBytes, block);
}

KIV_NOINLINE uint32_t AllocateInLockedHeap(Heap* heap, uint32_t slot, uint32_t sizeBytes,
                                           void** block) {
  void* made = AllocateInLocked(heap, sizeBytes);
  if (made == nullptr) made = SlotAllocate(slot, sizeBytes);
  return FinishAllocation(made, sizeBytes, block);
}

// Calls nothing but what it ends with, and therefore saves no registers.
KIV_NOINLINE uint32_t AllocateInHeaps(void* owner, uint64_t sizeBytes, void** block) {
  const uint64_t key = SlotKey(owner, block);
  if (!MayBeDirect(sizeBytes)) return AllocateAnySize(key, sizeBytes, block);
  const auto directBytes = static_cast<uint32_t>(sizeBytes);
  uint64_t ticks;
  if (!allocationClock.TryAdvance(OwnTicks(), &ticks)) {
    return AllocateAtDrawnTick(key, directBytes, block);
  }
  const uint64_t period = allocationClock.period();
  if (!IsInPeriod(ticks, period)) return AllocateAtTick(key, ticks, directBytes, block);
  const uint32_t slot = SlotInPeriod(key, period);
  const auto [made, locked] = TrySlotAllocate(slot, directBytes);
  if (locked != nullptr) return AllocateInLockedHeap(locked, slot, directBytes, block);
  if (made == nullptr) return AllocateInSlot(slot, directBytes, block);
  *block = made;
  return HasPendingWarning() ? SendWarning() : KIV_ST_OK;
}

KIV_NOINLINE uint32_t FreeInHeaps(void* block) {
  const auto [freed, locked] = TryThreadHeapFree(block);
  if (locked != nullptr) return FreeInLockedHeap(locked, block);
  return freed ? KIV_ST_OK : ThreadHeapFree(block);
}

// ---- Plain mode ----

uint32_t FinishPlain(const void* made, uint64_t sizeBytes) {
  if (made != nullptr) return KIV_ST_OK;
  ReportPlainFailure(sizeBytes);
  return KIV_ST_OUT_OF_MEMORY;
}

void* AllocatePlainOrFatal(uint64_t sizeBytes, uint8_t policy) {
  return FatalExceptionOccurred() ? FatalAllocate(sizeBytes) : PlainAllocate(sizeBytes, policy);
}

KIV_NOINLINE uint32_t AllocatePlain(uint64_t sizeBytes, void** block, uint8_t policy) {
  *block = AllocatePlainOrFatal(sizeBytes, policy);
  return FinishPlain(*block, sizeBytes);
}

void* ReallocatePlain(void* block, uint64_t newSizeBytes) {
  return FatalExceptionOccurred() ? FatalReallocate(block, newSizeBytes)
                                  : PlainReallocate(block, newSizeBytes);
}

KIV_NOINLINE uint32_t FreePlain(void* block) {
  if (FatalExceptionOccurred()) return FatalFree(block);
  PlainFree(block);
  return KIV_ST_OK;
}

// ---- Both ----

KIV_ALWAYS_INLINE uint32_t Allocate(void* owner, uint64_t sizeBytes, void** block, uint8_t policy) {
  const uint32_t modes = MemoryModes();
  if (modes == kManagerMode) {
    if (void* cached = TryPlainAllocate(sizeBytes, policy)) {
      *block = cached;
      return KIV_ST_OK;
    }
  }
  if (sizeBytes == 0) return KIV_ST_ARGUMENT;
  return (modes & kHeapsMode) != 0 ? AllocateInHeaps(owner, sizeBytes, block)
                                   : AllocatePlain(sizeBytes, block, policy);
}

// Whether a request with this alignment is served. Thread heaps and the fatal-exception mode ignore
// the alignment.
bool ServesAlignment(uint64_t alignment) {
  return alignment == 0 || InThreadHeapMode() || FatalExceptionOccurred();
}

// `modes` are those of the process.
KIV_ALWAYS_INLINE uint32_t Free(void* block, uint32_t modes) {
  if (modes == kManagerMode && TryPlainFree(block)) return KIV_ST_OK;
  return (modes & kHeapsMode) != 0 ? FreeInHeaps(block) : FreePlain(block);
}

// Compatibility: the statistics count a zeroed allocation even if it fails. Hosts know these
// counts.
void* AllocateElements(const void* owner, uint64_t sizeBytes, void* const* block, uint8_t policy) {
  if (!InThreadHeapMode()) return AllocatePlainOrFatal(sizeBytes, policy);
  CountAllocated(sizeBytes);
  return ThreadHeapAllocate(SlotKey(owner, block), sizeBytes);
}

uint32_t Finish(const void* made, uint64_t sizeBytes) {
  return InThreadHeapMode() ? FinishInHeaps(made, sizeBytes) : FinishPlain(made, sizeBytes);
}

}  // namespace

uint32_t adMallocPolicy(void* owner, uint64_t sizeBytes, void** block, uint8_t policy,
                        const char* /*file*/, uint32_t /*line*/) {
  return Allocate(owner, sizeBytes, block, policy);
}

uint32_t adMalloc(void* owner, uint64_t sizeBytes, void** block, const char* /*file*/,
                  uint32_t /*line*/) {
  return Allocate(owner, sizeBytes, block, AD_POLICY_FULL);
}

uint32_t adMallocAligned(void* owner, uint64_t alignment, uint64_t sizeBytes, void** block,
                         const char* file, uint32_t line) {
  if (sizeBytes != 0 && !ServesAlignment(alignment)) {
    Require(false, "0 && \"Only for Linux\"", kSource, kLineAligned);
    return KIV_ST_OUT_OF_MEMORY;  // if the assertion returns; the result is not written
  }
  return adMalloc(owner, sizeBytes, block, file, line);
}

uint32_t adRealloc(void* owner, uint64_t newSizeBytes, void* oldBlock, void** newBlock,
                   const char* file, uint32_t line) {
  if (oldBlock == nullptr) return adMalloc(owner, newSizeBytes, newBlock, file, line);
  if (newSizeBytes == 0) return KIV_ST_ARGUMENT;
  *newBlock = InThreadHeapMode()
                  ? ThreadHeapReallocate(SlotKey(owner, oldBlock), oldBlock, newSizeBytes)
                  : ReallocatePlain(oldBlock, newSizeBytes);
  return Finish(*newBlock, newSizeBytes);
}

uint32_t adCalloc(void* owner, int32_t count, uint64_t elementSizeBytes, void** block,
                  uint8_t policy) {
  const auto elements = static_cast<uint64_t>(int64_t{count});
  const bool wraps = HighProduct(elements, elementSizeBytes) != 0;
  const uint64_t sizeBytes = wraps ? UINT64_MAX : elements * elementSizeBytes;
  if (sizeBytes == 0) {
    if (block != nullptr) *block = nullptr;
    return KIV_ST_ARGUMENT;
  }
  *block = AllocateElements(owner, sizeBytes, block, policy);
  if (*block != nullptr) std::memset(*block, 0, sizeBytes);
  return Finish(*block, sizeBytes);
}

uint32_t adFree(void* block, const char* /*file*/, uint32_t /*line*/) {
  const uint32_t modes = MemoryModes();
  // Before the null check: with the no-free switch on, a free of null succeeds, too.
  if ((modes & kNoFreeMode) != 0) return KIV_ST_OK;
  if (block == nullptr) return KIV_ST_ARGUMENT;
  return Free(block, modes);
}

uint32_t adFreeAligned(void* block, uint8_t alignedOrigin) {
  if (block == nullptr) return KIV_ST_ARGUMENT;
  if (InThreadHeapMode() || alignedOrigin == 0 || FatalExceptionOccurred()) {
    return Free(block, MemoryModes());
  }
  os::RawFree(block);
  return KIV_ST_OK;
}

uint32_t adMallocOnNode(void* /*ignored*/, uint64_t sizeBytes, uint64_t* size, void** block) {
  if (sizeBytes == 0) return KIV_ST_ARGUMENT;
  *size = sizeBytes;
  *block = os::RawAllocate(sizeBytes);
  return FinishPlain(*block, sizeBytes);
}

uint32_t adFreeOnNode(uint64_t /*ignored*/, uint64_t /*alsoIgnored*/, void* block) {
  if (block == nullptr) return KIV_ST_ARGUMENT;
  os::RawFree(block);
  return KIV_ST_OK;
}
