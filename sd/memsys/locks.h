// The memory manager's own locks. A lock that guards heaps cannot come from one: the records are
// plain memory, and stay for the process's life.
//
// Order: the ring lock before a heap's; the short-pool lock and the ring lock before the accounting
// lock and the statistics lock, within which no other is taken.
#ifndef KIV_MEMSYS_LOCKS_H
#define KIV_MEMSYS_LOCKS_H

#include "kivsdu/spinlock.h"

namespace kiv {

// A free lock in memory of the C runtime. Null without memory.
KivSdSpinlock* CreatePlainSpinlock();

struct MemoryLocks {
  KivSdSpinlock* accounting;  // totals, marks, peaks, aligned regions
  KivSdSpinlock* ring;        // spare heaps, exchanges, the heap budget
  KivSdSpinlock* shortPool;   // spare short heaps
  KivSdSpinlock* statistics;  // counters of block sizes
};
extern MemoryLocks memoryLocks;

// Makes a lock that is not there yet. False without memory.
bool EnsureMemoryLock(KivSdSpinlock** lock);

}  // namespace kiv

#endif
