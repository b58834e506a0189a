#include "memsys/accounting.h"

#include <initializer_list>

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

// One for each thread that is registering a region. Guarded by the accounting lock.
Reservation* reservations = nullptr;

// Compatibility: a thread's own reservation is not counted when it allocates the region's record.
// Callers rely on it: a region that reaches the limit exactly is registered, even if its record
// then exceeds the limit.
uint64_t BytesReservedByOthers() {
  uint64_t sizeBytes = 0;
  for (const Reservation* other = reservations; other != nullptr; other = other->next) {
    if (other->thread != os::CurrentThreadId()) sizeBytes += other->sizeBytes;
  }
  return sizeBytes;
}

// A peak is never reset and therefore never below its mark.
void Raise(Relaxed<uint64_t>* mark, Relaxed<uint64_t>* peak, uint64_t value) {
  if (value <= *mark) return;
  *mark = value;
  if (value > *peak) *peak = value;
}

// Stores the total that the next message shows: the bytes in use plus addedBytes.
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

// Returns the bytes that a heap or a large block was charged with. The word before a large block's
// payload is its owner word, never 0; a heap has a quick list there that is never filled, 0.
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
  // Compatibility: the division comes first and drops up to 99 bytes of the limit. Hosts know the
  // exact byte at which the warning is sent.
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
  // Compatibility: the change is a signed number of 32 bits, so that a change of 2 GiB or more is
  // counted modulo 2^32. Hosts know these totals.
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
