#include "memsys/accounting.h"

#include "kivsdu/manager.h"
#include "memheap/heap.h"
#include "memsys/locks.h"
#include "memsys/messages.h"
#include "memsys/plain.h"
#include "memsys/settings.h"
#include "os/thread.h"
#include "sdsync/spinlock_guard.h"

using namespace kiv;

MemoryTotals kiv::memoryTotals;

namespace {

// Under the accounting lock; as many as there are threads that register a region just now.
Reservation* reservations = nullptr;

// Compatibility: a thread's own reservation is left out. The memory that its record takes comes
// before the region in the totals, and a region that reaches the limit exactly is registered,
// although its record may then pass the limit.
uint64_t BytesReservedByOthers() {
  uint64_t sizeBytes = 0;
  for (const Reservation* other = reservations; other != nullptr; other = other->next) {
    if (other->thread != os::CurrentThreadId()) sizeBytes += other->sizeBytes;
  }
  return sizeBytes;
}

// A peak is a mark that is never set back, and so never lies below it.
void Raise(Relaxed<uint64_t>* mark, Relaxed<uint64_t>* peak, uint64_t value) {
  if (value <= *mark) return;
  *mark = value;
  if (value > *peak) *peak = value;
}

// The total that a message shows: what is in use, with what was asked for in addition.
void NoteFailedTotal(uint64_t addedBytes) {
  messageState.failedTotal = static_cast<uint32_t>(AccountedTotal() + addedBytes);
}

void NoteWarning() {
  if (messageState.warningPending != 0 || !PassesWarningMark(AccountedTotal())) return;
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
  if (!PassesMemoryLimit(sizeBytes)) {
    Charge(sizeBytes);
    return base;
  }
  NoteFailedTotal(sizeBytes);
  PlainFree(base);
  return nullptr;
}

// What an arena or a large block was charged with. A large block has its owner word where a heap
// has a quick list that is never filled: the word in front of the payload, had it been a large
// block.
uint64_t ChargedBytes(void* base) {
  if (IsLarge(static_cast<char*>(base) + kLargeHeaderBytes)) {
    return kLargeHeaderBytes + static_cast<const LargeBlock*>(base)->sizeBytes;
  }
  return IsShort(*static_cast<const Heap*>(base)) ? memorySettings.shortHeapBytes
                                                  : memorySettings.heapBytes;
}

}  // namespace

void MemoryTotals::RaiseUsed() { Raise(&usedMark, &usedPeak, used); }

void MemoryTotals::RaiseAligned() { Raise(&alignedMark, &alignedPeak, aligned); }

void MemoryTotals::RaiseTotal() { Raise(&totalMark, &totalPeak, AccountedTotal()); }

void kiv::ResetTotals() {
  for (Relaxed<uint64_t>* total :
       {&memoryTotals.used, &memoryTotals.aligned, &memoryTotals.usedMark,
        &memoryTotals.alignedMark, &memoryTotals.totalMark, &memoryTotals.usedPeak,
        &memoryTotals.alignedPeak, &memoryTotals.totalPeak}) {
    *total = 0;
  }
}

uint64_t kiv::AccountedTotal() { return memoryTotals.used + memoryTotals.aligned; }

bool kiv::PassesMemoryLimit(uint64_t addedBytes) {
  return memorySettings.limitBytes != 0 &&
         AccountedTotal() + BytesReservedByOthers() + addedBytes > memorySettings.limitBytes;
}

void kiv::AddReservation(Reservation* reservation) {
  reservation->next = reservations;
  reservations = reservation;
}

void kiv::RemoveReservation(Reservation* reservation) {
  Reservation** link = &reservations;
  while (*link != reservation) link = &(*link)->next;
  *link = reservation->next;
}

bool kiv::PassesWarningMark(uint64_t totalBytes) {
  // Kept in this order: the division comes first, and drops up to 99 bytes of the limit.
  return memorySettings.limitBytes != 0 && memorySettings.limitBytes / 100 * 90 < totalBytes;
}

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

LargeBlock* kiv::AccountedReallocate(LargeBlock* block, uint64_t newTotalBytes) {
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
