// The memory manager's own locks. Their records are plain memory, not blocks of the heaps that they
// guard, and are never freed.
//
// Lock order:
//   ring lock        before a heap's lock, the accounting lock and the statistics lock
//   short-pool lock  before the accounting lock and the statistics lock
//   accounting and statistics locks  last: no other lock is taken while one of them is held
#ifndef KIV_MEMSYS_LOCKS_H
#define KIV_MEMSYS_LOCKS_H

#include "kivsdu/spinlock.h"

namespace kiv {

// Makes a free lock in memory of the C runtime. Returns null when there is no memory.
KivSdSpinlock* CreatePlainSpinlock();

struct MemoryLocks {
  KivSdSpinlock* accounting;  // totals, marks, peaks, aligned regions
  KivSdSpinlock* ring;        // spare heaps, exchanges, the heap budget
  KivSdSpinlock* shortPool;   // spare short heaps
  KivSdSpinlock* statistics;  // counters of block sizes
};
extern MemoryLocks memoryLocks;

// Makes a lock unless it exists already. Returns false when there is no memory.
bool EnsureMemoryLock(KivSdSpinlock** lock);

}  // namespace kiv

#endif
