// Queue nodes of the reader-writer lock, and the per-thread tables that hold them.
#ifndef KIV_SDRWLOCK_NODE_H
#define KIV_SDRWLOCK_NODE_H

#include <cstdint>

#include "atomic.h"
#include "kivsdu/mutex.h"
#include "kivsdu/rwlock.h"
#include "kivsdu/status.h"

// The condition of one node; its thread sleeps on the semaphore.
struct KivRWLockCondition {
  int32_t waiters;  // guarded by the section
  KivSdCritSec section;
  void* semaphore;       // raised to wake the sleeper
  void* event;           // would be signalled by the last of several woken sleepers
  uint8_t broadcasting;  // always 0: a node has one sleeper
};

// One thread's place in the queue of one lock. Its neighbours in the queue read and write
// `blocked`, `sleeping` and `queueLink`, and wake it through `wakeMutex` and `condition`. Only the
// owning thread uses the other fields.
struct KivRWLockNode {
  kiv::Atomic<uint32_t> blocked;          // 1 while the thread must wait; the waker clears it
  kiv::Atomic<uint32_t> sleeping;         // 1 while it sleeps; guarded by the wake mutex
  kiv::Atomic<KivRWLockNode*> queueLink;  // of a writer: next node; of a reader: previous node
  KivRWLockNode* listLink;                // next in the same list of the table
  void* wakeMutex;                        // orders the waker against the sleeper
  KivRWLockCondition condition;
  uint32_t mode;            // KIV_RWLOCK_
  int32_t depth;            // unreleased acquisitions
  KivRWLock* lock;          // the node's lock; the key in the lists
  int32_t readerWaitLoops;  // the lock's limits when the node was made
  int32_t writerWaitLoops;
  int32_t readerSpinYields;
  int32_t writerSpinYields;
  int32_t readerSpinLoops;
  int32_t writerSpinLoops;
};

namespace kiv {

// A thread's nodes of one slot, linked through listLink.
using NodeList = KivRWLockNode*;

// Returns the link that points to the lock's node, or the null link at the list's end; null without
// lists. Compares the lock's address only and never reads the lock.
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

// Returns the thread's node for a lock that it holds or waits for; null if there is none.
inline KivRWLockNode* FindActiveNode(const KivRWLockTable& table, const KivRWLock* lock) {
  NodeList* link = FindLink(table.active, lock, lock->slot);
  return link == nullptr ? nullptr : *link;
}

// Returns the active node, or moves a node of this lock from the free list to the active list and
// returns it; null if there is neither.
inline KivRWLockNode* FindOrReuseNode(KivRWLockTable* table, const KivRWLock* lock) {
  KivRWLockNode* node = FindActiveNode(*table, lock);
  if (node != nullptr) return node;
  node = Unlink(FindLink(table->free, lock, lock->slot));
  // The active lists exist, because every node on a free list was active once.
  if (node != nullptr) Push(&table->active[lock->slot], node);
  return node;
}

// Makes a node and adds it to the active list. Returns the allocator's status on failure; the table
// then has no new node.
uint32_t AddNode(void* owner, KivRWLockTable* table, KivRWLock* lock);

// For a table without free lists.
uint32_t RetireToNewLists(void* owner, KivRWLockTable* table, NodeList* link, int32_t slot);

// Clears the mode of the active node behind the link and moves the node to the free list of its slot.
// If the free lists cannot be made, the node stays on the active list and the allocator's status is
// returned. Does not read the lock, which may have ended.
inline uint32_t RetireNode(void* owner, KivRWLockTable* table, NodeList* link, int32_t slot) {
  (*link)->mode = KIV_RWLOCK_FREE;
  if (table->free == nullptr) return RetireToNewLists(owner, table, link, slot);
  Push(&table->free[slot], Unlink(link));
  return KIV_ST_OK;
}

// Destroys every node and both tables.
void FreeTable(KivRWLockTable* table);

}  // namespace kiv

#endif
