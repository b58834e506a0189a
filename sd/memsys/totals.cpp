#include "memsys/totals.h"

#include "memsys/settings.h"
#include "os/thread.h"

kiv::MemoryTotals kiv::memoryTotals;

namespace {

using kiv::Relaxed;
using kiv::Reservation;

// Under the accounting lock; as many as there are threads that register a region just now.
Reservation* reservations = nullptr;

// Compatibility: a thread's own reservation is left out. The memory that its record takes comes
// before the region in the totals, and a region that reaches the limit exactly is registered,
// although its record may then pass the limit.
uint64_t BytesReservedByOthers() {
  uint64_t sizeBytes = 0;
  for (const Reservation* other = reservations; other != nullptr; other = other->next) {
    if (other->thread != kiv::os::CurrentThreadId()) sizeBytes += other->sizeBytes;
  }
  return sizeBytes;
}

// A peak is a mark that is never set back, and so never lies below it.
void Raise(Relaxed<uint64_t>* mark, Relaxed<uint64_t>* peak, uint64_t value) {
  if (value <= *mark) return;
  *mark = value;
  if (value > *peak) *peak = value;
}

}  // namespace

void kiv::MemoryTotals::RaiseUsed() { Raise(&usedMark, &usedPeak, used); }

void kiv::MemoryTotals::RaiseAligned() { Raise(&alignedMark, &alignedPeak, aligned); }

void kiv::MemoryTotals::RaiseTotal() { Raise(&totalMark, &totalPeak, AccountedTotal()); }

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
