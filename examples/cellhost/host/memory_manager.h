// The library's memory manager as this host runs it: first of everything and last of everything,
// because a block must not cross either; its messages, written to the error output and counted;
// its totals.
#ifndef CELLHOST_HOST_MEMORY_MANAGER_H
#define CELLHOST_HOST_MEMORY_MANAGER_H

#include <stdint.h>

#include <atomic>

namespace cellhost {

enum class MemoryUse {
  kPlain,         // blocks of the C runtime, whatever a file says
  kAsConfigured,  // as bin/config.mem below MOLTAPATH says; plain without such a file
};

// How many messages came. relaxed wherever they are used: the counts order nothing.
struct MemoryMessages {
  std::atomic<uint32_t> warnings;  // more than 90% of the limit is in use
  std::atomic<uint32_t> refusals;
};

// What the library counts as in use, in bytes.
struct MemoryTotals {
  bool counted;  // if not, nothing is counted and the rest is 0
  uint64_t outsideHeaps;
  uint64_t inHeaps;
  uint64_t aligned;
  uint64_t peak;  // of them all together

  uint64_t used() const { return outsideHeaps + inHeaps + aligned; }
};

// Blocks that were allocated and freed, of all sizes; 0 while the configuration does not have them
// counted. The library counts modulo 2^32.
struct MemoryBlocks {
  uint64_t allocated;
  uint64_t freed;
};

// Both on the main thread: before anything of the process has a block of the library's, and after
// everything has been freed. False on failure, which has then been told.
bool StartMemoryManager(MemoryUse use);
void StopMemoryManager();

// Any thread.
const MemoryMessages& MemoryMessagesSeen();
MemoryTotals MemoryTotalsNow();
MemoryBlocks MemoryBlocksNow();

}  // namespace cellhost

#endif
