#include "memsys/totals.h"

#include "memsys/settings.h"

kiv::MemoryTotals kiv::memoryTotals;

namespace {

using kiv::Relaxed;

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
       {&memoryTotals.used, &memoryTotals.aligned, &memoryTotals.reserved, &memoryTotals.usedMark,
        &memoryTotals.alignedMark, &memoryTotals.totalMark, &memoryTotals.usedPeak,
        &memoryTotals.alignedPeak, &memoryTotals.totalPeak}) {
    *total = 0;
  }
}

uint64_t kiv::AccountedTotal() { return memoryTotals.used + memoryTotals.aligned; }

bool kiv::PassesMemoryLimit(uint64_t addedBytes) {
  return memorySettings.limitBytes != 0 &&
         AccountedTotal() + memoryTotals.reserved + addedBytes > memorySettings.limitBytes;
}

bool kiv::PassesWarningMark(uint64_t totalBytes) {
  // Kept in this order: the division comes first, and drops up to 99 bytes of the limit.
  return memorySettings.limitBytes != 0 && memorySettings.limitBytes / 100 * 90 < totalBytes;
}
