// Statistics of block sizes: allocations and frees by size class.
#ifndef KIV_MEMSYS_STATISTICS_H
#define KIV_MEMSYS_STATISTICS_H

#include <cstdint>

#include "memsys/settings.h"

namespace kiv {

// Sets all counters to 0. False when their lock cannot be made.
bool PrepareBlockStatistics();

void CountBlockNow(int64_t sizeBytes);

// Counts an allocation of so many bytes, or with a negative size a free. Where it is called with a
// size of 0, that counts as a free.
inline void CountBlock(int64_t sizeBytes) {
  if (memorySettings.blockStatistics) CountBlockNow(sizeBytes);
}

inline void CountAllocated(uint64_t sizeBytes) { CountBlock(static_cast<int64_t>(sizeBytes)); }
inline void CountFreed(uint64_t sizeBytes) { CountBlock(-static_cast<int64_t>(sizeBytes)); }

}  // namespace kiv

#endif
