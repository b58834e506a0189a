// The host's side of the library's memory manager: start and end, messages (reported and counted),
// totals. The manager starts before the first block is allocated and ends after the last is freed.
#ifndef CELLHOST_HOST_MEMORY_MANAGER_H
#define CELLHOST_HOST_MEMORY_MANAGER_H

#include <stdint.h>

#include <atomic>

namespace cellhost {

enum class MemoryUse {
  kPlain,         // blocks come from the C runtime; the configuration file is ignored
  kAsConfigured,  // as bin/config.mem below MOLTAPATH says; kPlain without that file
};

// Number of messages received. Every access is relaxed: the counts order nothing.
struct MemoryMessages {
  std::atomic<uint32_t> warnings;  // more than 90% of the limit is in use
  std::atomic<uint32_t> refusals;
};

// Bytes in use, as the library counts them.
struct MemoryTotals {
  bool counted;  // false: the library does not count, and the other fields are 0
  uint64_t outsideHeaps;
  uint64_t inHeaps;
  uint64_t aligned;
  uint64_t peak;  // highest sum of the three

  uint64_t used() const { return outsideHeaps + inHeaps + aligned; }
};

// Number of blocks allocated and freed, of all sizes; 0 unless the configuration turns counting on.
// The library counts modulo 2^32.
struct MemoryBlocks {
  uint64_t allocated;
  uint64_t freed;
};

// Call both on the main thread: before the process allocates its first block from the library, and
// after it has freed the last. Returns false on failure, after reporting it.
bool StartMemoryManager(MemoryUse use);
void StopMemoryManager();

// Shows the memory in use to other processes until StopMemoryManager. Returns false on failure, after
// reporting it.
bool PublishMemory();

// Any thread.
const MemoryMessages& MemoryMessagesSeen();
MemoryTotals MemoryTotalsNow();
MemoryBlocks MemoryBlocksNow();

}  // namespace cellhost

#endif
