// Statistics of block sizes: counts of allocations and frees by size class.
#ifndef KIV_MEMSYS_STATISTICS_H
#define KIV_MEMSYS_STATISTICS_H

#include <cstdint>

#include "memsys/settings.h"

namespace kiv {

// Sets all counters to 0. Returns false if their lock cannot be made.
bool PrepareBlockStatistics();

// CountBlock while statistics are on.
void CountBlockNow(int64_t sizeBytes);

// Counts an allocation of sizeBytes bytes, or a free if sizeBytes is negative or 0.
inline void CountBlock(int64_t sizeBytes) {
  if (memorySettings.blockStatistics) CountBlockNow(sizeBytes);
}

inline void CountAllocated(uint64_t sizeBytes) { CountBlock(static_cast<int64_t>(sizeBytes)); }
inline void CountFreed(uint64_t sizeBytes) { CountBlock(-static_cast<int64_t>(sizeBytes)); }

}  // namespace kiv

#endif
