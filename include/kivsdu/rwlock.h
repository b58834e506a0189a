/* A reader-writer lock: readers share, writers exclude each other and the readers.
 *
 * Fair and scalable: every waiter waits on a node of its own; writers enter in the order they
 * came; readers that arrive while a writer waits or works gather behind it and enter together
 * after it. It is the queue lock with writer preference of J. M. Mellor-Crummey and M. L. Scott,
 * "Scalable Reader-Writer Synchronization for Shared-Memory Multiprocessors", PPoPP 1991.
 *
 * A thread may take a lock again in the mode in which it holds it, and for reading when it holds
 * it for writing; it gives it back as often. It may not go from reading to writing.
 *
 * The lock lies in the caller's storage and needs no ending. The storage may be reused or released
 * once every KivSdEndRW on the lock has returned, in all threads: that another thread has got the
 * lock does not mean that the one before has left it. Nodes for the lock stay in the threads'
 * tables, and serve a later lock at its address with the limits of the first.
 *
 * Each thread has a lock table, also the caller's, that it passes to every call; nodes come from it
 * and go back to it, so that locking allocates only at a thread's first meeting with a lock.
 *
 * Example: examples/locks.c. */
#ifndef KIVSDU_RWLOCK_H
#define KIVSDU_RWLOCK_H

#include "api.h"

#define KIV_RWLOCK_SLOTS 7u /* lists of a lock table; the number of a lock's list is the host's */

/* Modes of a lock, as a thread sees it. */
#define KIV_RWLOCK_FREE 0u
#define KIV_RWLOCK_READ 1u
#define KIV_RWLOCK_WRITE 65535u

struct KivRWLockNode;

typedef struct KivRWLock {
  struct KivRWLockNode* readerTail; /* last reader that waits */
  struct KivRWLockNode* writerHead; /* the writer to wake when the readers have gone */
  struct KivRWLockNode* writerTail; /* last writer that holds or waits */
  uint64_t countAndFlags;           /* 1 writer interested, 2 writer active, 4 reader interested;
                                       above, the number of active readers */
  int32_t readerSpinLoops;          /* limits of waiting; see KivSyncEnvInit */
  int32_t writerSpinLoops;
  int32_t readerSpinYields;
  int32_t writerSpinYields;
  int32_t readerWaitLoops;
  int32_t writerWaitLoops;
  int32_t callerValue;
  uint8_t blockingAllowed;
  int32_t slot;
} KivRWLock;

KIV_ASSERT_SIZE(KivRWLock, 72);
KIV_ASSERT_FIELD(KivRWLock, readerTail, 0);
KIV_ASSERT_FIELD(KivRWLock, writerHead, 8);
KIV_ASSERT_FIELD(KivRWLock, writerTail, 16);
KIV_ASSERT_FIELD(KivRWLock, countAndFlags, 24);
KIV_ASSERT_FIELD(KivRWLock, readerSpinLoops, 32);
KIV_ASSERT_FIELD(KivRWLock, writerSpinLoops, 36);
KIV_ASSERT_FIELD(KivRWLock, readerSpinYields, 40);
KIV_ASSERT_FIELD(KivRWLock, writerSpinYields, 44);
KIV_ASSERT_FIELD(KivRWLock, readerWaitLoops, 48);
KIV_ASSERT_FIELD(KivRWLock, writerWaitLoops, 52);
KIV_ASSERT_FIELD(KivRWLock, callerValue, 56);
KIV_ASSERT_FIELD(KivRWLock, blockingAllowed, 60);
KIV_ASSERT_FIELD(KivRWLock, slot, 64);

/* A thread's lists of nodes, one list a slot. Zeroed by its owner before the first use. */
typedef struct KivRWLockTable {
  struct KivRWLockNode** active; /* of locks that the thread holds or waits for */
  struct KivRWLockNode** free;   /* of locks that it has held */
} KivRWLockTable;

KIV_ASSERT_SIZE(KivRWLockTable, 16);
KIV_ASSERT_FIELD(KivRWLockTable, active, 0);
KIV_ASSERT_FIELD(KivRWLockTable, free, 8);

/* Prepares a free lock, and measures the spin budget if it is the first of the process (sync.h).
 *
 *   ignored          any value
 *   callerValue      kept for the host
 *   lock             must not be null
 *   blockingAllowed  0: a waiter spins until it may enter. Otherwise it spins, yields, and then
 *                    sleeps in the kernel, within the limits that the environment sets
 *   slot             0 to KIV_RWLOCK_SLOTS - 1: the list of every thread's table that the lock's
 *                    nodes lie in
 *
 * Always 0. One thread. */
KIVSDU_API uint32_t KivRWLockInit(void* ignored, int32_t callerValue, KivRWLock* lock,
                                  uint8_t blockingAllowed, int32_t slot);

/* Take the lock for reading, for writing, and give it back.
 *
 *   owner  the caller's context for allocations, or null
 *   table  the calling thread's own
 *
 * 0, or KIV_ST_OUT_OF_MEMORY  no memory for a node or a list. A taking then took nothing; a giving
 *                             back did give the lock back
 *       KIV_ST_MUTEX_REQUEST  (write) the thread holds the lock for reading
 *       KIV_ST_MUTEX_CLEAR    (end) the thread does not hold the lock
 * Any thread. */
KIVSDU_API uint32_t KivSdStartRead(void* owner, KivRWLockTable* table, KivRWLock* lock);
KIVSDU_API uint32_t KivSdStartWrite(void* owner, KivRWLockTable* table, KivRWLock* lock);
KIVSDU_API uint32_t KivSdEndRW(void* owner, KivRWLockTable* table, KivRWLock* lock);

/* Whether the thread holds the lock, 1 or 0, and in which mode (KIV_RWLOCK_). */
KIVSDU_API int32_t KivSdOwnerRW(void* ignored, const KivRWLockTable* table, const KivRWLock* lock);
KIVSDU_API uint32_t KivSdModeRW(void* ignored, const KivRWLockTable* table, const KivRWLock* lock);

/* Frees all nodes and lists of a table and leaves it zeroed. The thread must hold no lock and
 * wait for none. Always 0. */
KIVSDU_API uint32_t KivRWLockFreeQNodes(KivRWLockTable* table);

#endif
