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

// One slot's nodes of a thread, through their listLink.
using NodeList = KivRWLockNode*;

// The link that points at the lock's node, or the list's null end; null without lists. Of the lock
// only the address counts.
inline NodeList* FindLink(NodeList* lists, const KivRWLock* lock, int32_t slot) {
  if (lists == nullptr) return nullptr;
  NodeList* link = &lists[slot];
  while (*link != nullptr && (*link)->lock != lock) link = &(*link)->listLink;
  return link;
}

inline KivRWLockNode* Unlink(NodeList* link) {
  if (link == nullptr || *link == nullptr) return nullptr;
  KivRWLockNode* node = *link;
  *link = node->listLink;
  return node;
}

inline void Push(NodeList* list, KivRWLockNode* node) {
  node->listLink = *list;
  *list = node;
}

// The thread's node for a lock that it holds or waits for; null if there is none.
inline KivRWLockNode* FindActiveNode(const KivRWLockTable& table, const KivRWLock* lock) {
  NodeList* link = FindLink(table.active, lock, lock->slot);
  return link == nullptr ? nullptr : *link;
}

// The same, or a node from the free list, which is then among the active; null if there is none
// to reuse.
inline KivRWLockNode* FindOrReuseNode(KivRWLockTable* table, const KivRWLock* lock) {
  KivRWLockNode* node = FindActiveNode(*table, lock);
  if (node != nullptr) return node;
  node = Unlink(FindLink(table->free, lock, lock->slot));
  // What lies in the free list was active once: that list is there.
  if (node != nullptr) Push(&table->active[lock->slot], node);
  return node;
}

// Makes a node, and puts it among the active. A status of the allocator leaves the table without
// it.
uint32_t AddNode(void* owner, KivRWLockTable* table, KivRWLock* lock);

// Moves an active node to the free list of its slot, with its mode cleared. When the list cannot
// be made the node stays among the active; the status is the allocator's. Does not look at the
// lock, which may have ended.
uint32_t RetireNode(void* owner, KivRWLockTable* table, KivRWLockNode* node, int32_t slot);

// Destroys every node and both tables.
void FreeTable(KivRWLockTable* table);

}  // namespace kiv

#endif
