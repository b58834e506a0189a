// The host's queries about memory in use and the settings.
#include "kivsdu/memusage.h"
#include "kivsdu/status.h"
#include "memsys/accounting.h"
#include "memsys/locks.h"
#include "memsys/settings.h"
#include "memsys/thread_heaps.h"
#include "sdsync/spinlock_guard.h"

using namespace kiv;

uint32_t adMemGetUsedMemory(uint64_t* usedOutsideHeaps, uint64_t* inHeaps, uint64_t* aligned,
                            uint64_t* usedPeak, uint64_t* alignedPeak, uint64_t* totalPeak) {
  if (!memorySettings.memoryControl) return kUnavailable;
  uint64_t used = 0;
  {
    const SpinlockGuard guard(memoryLocks.accounting);
    used = memoryTotals.used;
    *aligned = memoryTotals.aligned;
    *usedPeak = memoryTotals.usedPeak;
    *alignedPeak = memoryTotals.alignedPeak;
    *totalPeak = memoryTotals.totalPeak;
  }
  *inHeaps = 0;
  *usedOutsideHeaps = 0;
  if (threadHeapCount != 0) {
    *inHeaps = BytesInThreadHeaps();
    *usedOutsideHeaps = used - *inHeaps;
  }
  return KIV_ST_OK;
}

uint32_t adMemGetMaxUsedMarkMemory(uint64_t* usedMark, uint64_t* alignedMark, uint64_t* totalMark) {
  if (!memorySettings.memoryControl) return kUnavailable;
  const SpinlockGuard guard(memoryLocks.accounting);
  *usedMark = memoryTotals.usedMark;
  *alignedMark = memoryTotals.alignedMark;
  *totalMark = memoryTotals.totalMark;
  return KIV_ST_OK;
}

uint32_t adMemResetMaxUsedMarkMemory() {
  if (!memorySettings.memoryControl) return kUnavailable;
  const SpinlockGuard guard(memoryLocks.accounting);
  memoryTotals.usedMark = memoryTotals.used;
  memoryTotals.alignedMark = memoryTotals.aligned;
  memoryTotals.totalMark = AccountedTotal();
  return KIV_ST_OK;
}

uint32_t adMemGetMemorySettings(uint64_t* settings) {
  const bool hasHeaps = memorySettings.largestBlockBytes != 0;
  const auto wide = [](int32_t count) { return static_cast<uint64_t>(int64_t{count}); };
  settings[0] = memorySettings.limitBytes;
  settings[1] = hasHeaps ? wide(threadHeapCount) : 0;
  settings[2] = hasHeaps ? wide(InitialHeapBudget()) : 0;
  settings[3] = hasHeaps ? memorySettings.heapBytes : 0;
  settings[4] = hasHeaps && memorySettings.shortHeaps ? memorySettings.shortHeapBytes : 0;
  settings[5] = memorySettings.largestBlockBytes;
  settings[6] = memorySettings.memoryControl ? 1 : 0;
  return memorySettings.memoryControl ? 1 : 0;
}
