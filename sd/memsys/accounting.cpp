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

// The total that a message shows: what is in use, with what was asked for in addition.
void NoteFailedTotal(uint64_t addedBytes) {
  messageState.failedTotal = static_cast<uint32_t>(kiv::AccountedTotal() + addedBytes);
}

void NoteWarning() {
  if (messageState.warningPending != 0 || !kiv::PassesWarningMark(kiv::AccountedTotal())) return;
  NoteFailedTotal(0);
  messageState.warningPending = 1;
}

void Charge(uint64_t addedBytes) {
  memoryTotals.used += addedBytes;
  NoteWarning();
  memoryTotals.RaiseUsed();
  memoryTotals.RaiseTotal();
}

void* ChargeOrRelease(void* base, uint64_t sizeBytes) {
  if (!kiv::PassesMemoryLimit(sizeBytes)) {
    Charge(sizeBytes);
    return base;
  }
  NoteFailedTotal(sizeBytes);
  kiv::PlainFree(base);
  return nullptr;
}

// What an arena or a large block was charged with. A large block has its owner word where a heap
// has a quick list that is never filled: the word in front of the payload, had it been a large
// block.
uint64_t ChargedBytes(void* base) {
  if (kiv::IsLarge(static_cast<char*>(base) + kiv::kLargeHeaderBytes)) {
    return kiv::kLargeHeaderBytes + static_cast<const kiv::LargeBlock*>(base)->sizeBytes;
  }
  return IsShort(*static_cast<const kiv::Heap*>(base)) ? memorySettings.shortHeapBytes
                                                       : memorySettings.heapBytes;
}

}  // namespace

void* kiv::AccountedAllocate(uint64_t sizeBytes) {
  void* base = PlainAllocate(sizeBytes, AD_POLICY_FULL);
  if (!memorySettings.memoryControl) return base;
  const SpinlockGuard guard(memoryLocks.accounting);
  if (base != nullptr) return ChargeOrRelease(base, sizeBytes);
  NoteFailedTotal(0);
  return nullptr;
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
  void* moved = nullptr;
  if (!PassesMemoryLimit(change)) moved = PlainReallocate(block, newTotalBytes);
  if (moved == nullptr) {
    NoteFailedTotal(change);
    return nullptr;
  }
  Charge(change);
  return static_cast<LargeBlock*>(moved);
}
