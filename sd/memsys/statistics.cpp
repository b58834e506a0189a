#include "memsys/statistics.h"

#include <algorithm>
#include <array>
#include <bit>

#include "kivsdu/memusage.h"
#include "kivsdu/status.h"
#include "memheap/heap.h"
#include "memsys/locks.h"
#include "sdsync/spinlock_guard.h"

using namespace kiv;

namespace {

constexpr uint32_t kSinceInitialization = 1;

using Counters = std::array<uint32_t, AD_BLOCK_CLASSES>;

struct Statistics {
  Counters allocated;
  Counters freed;
};

// Guarded by the statistics lock.
Statistics sinceInitialization;
Statistics sinceReset;

// Class 0 holds the sizes of the quick lists; each further class ends at a power of two, from 1024
// on.
uint32_t ClassOf(uint64_t sizeBytes) {
  if (sizeBytes <= kLargestParkedBytes) return 0;
  if (sizeBytes <= 1024) return 1;
  return std::min<uint32_t>(static_cast<uint32_t>(std::bit_width(sizeBytes - 1)) - 9,
                            AD_BLOCK_CLASSES - 1);
}

void Count(Statistics* statistics, int64_t sizeBytes) {
  const bool isFree = sizeBytes < 1;
  const uint64_t magnitude =
      isFree ? 0 - static_cast<uint64_t>(sizeBytes) : static_cast<uint64_t>(sizeBytes);
  Counters& counters = isFree ? statistics->freed : statistics->allocated;
  ++counters[ClassOf(magnitude)];
}

}  // namespace

bool kiv::PrepareBlockStatistics() {
  sinceInitialization = {};
  sinceReset = {};
  return EnsureMemoryLock(&memoryLocks.statistics);
}

void kiv::CountBlockNow(int64_t sizeBytes) {
  const SpinlockGuard guard(memoryLocks.statistics);
  Count(&sinceInitialization, sizeBytes);
  Count(&sinceReset, sizeBytes);
}

uint32_t adMemGetUsedMemoryBlocks(uint32_t selector, uint64_t* allocated, uint64_t* freed) {
  if (!memorySettings.blockStatistics) return kUnavailable;
  const SpinlockGuard guard(memoryLocks.statistics);
  const Statistics& from = selector == kSinceInitialization ? sinceInitialization : sinceReset;
  std::copy(from.allocated.begin(), from.allocated.end(), allocated);
  std::copy(from.freed.begin(), from.freed.end(), freed);
  return KIV_ST_OK;
}

uint32_t adMemResetUsedMarkMemoryBlocks() {
  if (!memorySettings.blockStatistics) return kUnavailable;
  const SpinlockGuard guard(memoryLocks.statistics);
  sinceReset = {};
  return KIV_ST_OK;
}
