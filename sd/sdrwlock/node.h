// Queue nodes of the reader-writer lock, and the per-thread tables that they come from.
#ifndef KIV_SDRWLOCK_NODE_H
#define KIV_SDRWLOCK_NODE_H

#include <cstdint>

#include "atomic.h"
#include "kivsdu/mutex.h"
#include "kivsdu/rwlock.h"

// A condition of one node: what its thread sleeps on in the kernel.
struct KivRWLockCondition {
  int32_t waiters;  // guarded by the section
  KivSdCritSec section;
  void* semaphore;       // carries the wake-up
  void* event;           // signalled by the last of several that are woken at once
  uint8_t broadcasting;  // always 0: a node has one sleeper
};

// One thread's part in one lock. The owning thread alone uses all but `blocked`, `sleeping` and
// `queueLink`: those its neighbours in the queue read and write.
struct KivRWLockNode {
  kiv::Atomic<uint32_t> blocked;          // 1 while the thread must wait; cleared by who lets it in
  kiv::Atomic<uint32_t> sleeping;         // 1 while it sleeps; guarded by the wake mutex
  kiv::Atomic<KivRWLockNode*> queueLink;  // a writer's next, a reader's previous
  KivRWLockNode* listLink;                // next in the same list of the table
  void* wakeMutex;                        // orders the waker against the sleeper
  KivRWLockCondition condition;
  uint32_t mode;            // KIV_RWLOCK_
  int32_t depth;            // takings not given back
  KivRWLock* lock;          // whose node this is; the key in the lists
  int32_t readerWaitLoops;  // the lock's limits when the node was made
  int32_t writerWaitLoops;
  int32_t readerSpinYields;
  int32_t writerSpinYields;
  int32_t readerSpinLoops;
  int32_t writerSpinLoops;
};

namespace kiv {

// The thread's node for a lock that it holds or waits for; null if there is none.
KivRWLockNode* FindActiveNode(const KivRWLockTable& table, const KivRWLock* lock);

// The same, or a node from the free list or a new one, which is then among the active. A status
// of the allocator leaves the table as it was.
uint32_t EnsureActiveNode(void* owner, KivRWLockTable* table, KivRWLock* lock,
                          KivRWLockNode** node);

// Moves an active node to the free list, with its mode cleared. When the list cannot be made the
// node stays among the active; the status is the allocator's.
uint32_t RetireNode(void* owner, KivRWLockTable* table, KivRWLockNode* node);

// Destroys every node and both tables.
void FreeTable(KivRWLockTable* table);

}  // namespace kiv

#endif
