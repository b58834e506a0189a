#include "memsys/accounting.h"

#include "kivsdu/manager.h"
#include "memheap/heap.h"
#include "memsys/locks.h"
#include "memsys/messages.h"
#include "memsys/plain.h"
#include "memsys/settings.h"
#include "memsys/totals.h"
#include "sdsync/spinlock_guard.h"

namespace {

using kiv::memorySettings;
using kiv::memoryTotals;
using kiv::messageState;

void NoteFailedTotal() { messageState.failedTotal = static_cast<uint32_t>(kiv::AccountedTotal()); }

void NoteWarning() {
  if (messageState.warningPending != 0 || !kiv::PassesWarningMark(kiv::AccountedTotal())) return;
  NoteFailedTotal();
  messageState.warningPending = 1;
}

// Takes back what would pass the limit.
void* ChargeOrRelease(void* base, uint64_t sizeBytes) {
  memoryTotals.used += sizeBytes;
  if (!kiv::PassesMemoryLimit(kiv::AccountedTotal())) {
    NoteWarning();
    return base;
  }
  NoteFailedTotal();
  kiv::PlainFree(base);
  memoryTotals.used -= sizeBytes;
  return nullptr;
}

// What an arena or a large block was charged with.
uint64_t ChargedBytes(void* base) {
  const auto* large = static_cast<const kiv::LargeBlock*>(base);
  if (large->owner != 0) return kiv::kLargeHeaderBytes + large->sizeBytes;
  const auto* heap = static_cast<const kiv::Heap*>(base);
  return heap->index.load(std::memory_order_relaxed) == kiv::kShortHeapIndex
             ? memorySettings.shortHeapBytes
             : memorySettings.heapBytes;
}

}  // namespace

void* kiv::AccountedAllocate(uint64_t sizeBytes) {
  void* base = PlainAllocate(sizeBytes, AD_POLICY_FULL);
  if (!memorySettings.memoryControl) return base;
  const SpinlockGuard guard(memoryLocks.accounting);
  if (base != nullptr) {
    base = ChargeOrRelease(base, sizeBytes);
  } else {
    NoteFailedTotal();
  }
  memoryTotals.RaiseUsed();
  memoryTotals.RaiseTotal();
  return base;
}

void kiv::AccountedFree(void* base) {
  if (memorySettings.memoryControl) {
    const SpinlockGuard guard(memoryLocks.accounting);
    memoryTotals.used -= ChargedBytes(base);
  }
  PlainFree(base);
}

kiv::LargeBlock* kiv::AccountedReallocate(LargeBlock* block, uint64_t newTotalBytes) {
  if (!memorySettings.memoryControl) {
    return static_cast<LargeBlock*>(PlainReallocate(block, newTotalBytes));
  }
  const SpinlockGuard guard(memoryLocks.accounting);
  // Kept in 32 bits: a change of 2 GiB and more is counted modulo 2^32, with its sign.
  const auto change = static_cast<uint64_t>(
      int64_t{static_cast<int32_t>(newTotalBytes - (block->sizeBytes + kLargeHeaderBytes))});
  memoryTotals.used += change;
  void* moved = nullptr;
  if (!PassesMemoryLimit(AccountedTotal())) moved = PlainReallocate(block, newTotalBytes);
  if (moved == nullptr) {
    NoteFailedTotal();
    memoryTotals.used -= change;
    return nullptr;
  }
  NoteWarning();
  memoryTotals.RaiseUsed();
  memoryTotals.RaiseTotal();
  return static_cast<LargeBlock*>(moved);
}
