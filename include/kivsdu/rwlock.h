/* A reader-writer lock: readers share it; a writer excludes readers and other writers.
 *
 * The lock is fair, and scales because every waiter spins on a node of its own. Writers enter in
 * the order of their arrival. Readers that arrive while a writer waits or works queue behind it,
 * and enter together after it. It is the queue lock with writer preference of J. M. Mellor-Crummey
 * and M. L. Scott, "Scalable Reader-Writer Synchronization for Shared-Memory Multiprocessors",
 * PPoPP 1991.
 *
 * A thread may take a lock again in the mode that it holds. A writer may also take it for reading.
 * Every start needs one KivSdEndRW. A reader cannot upgrade to writing.
 *
 * The lock lies in the caller's storage and need not be ended. The storage may be reused or freed
 * once every KivSdEndRW on the lock has returned, in all threads. It is not enough that another
 * thread has acquired the lock: the previous owner may still be inside KivSdEndRW. Nodes stay in
 * the threads' tables. They serve a later lock at the same address, with the limits of the first
 * lock.
 *
 * Each thread has a lock table in the caller's storage and passes it to every call. Nodes come from
 * the table and return to it. A thread therefore allocates only when it uses a lock for the first
 * time.
 *
 * Example: examples/locks.c. */
#ifndef KIVSDU_RWLOCK_H
#define KIVSDU_RWLOCK_H

#include "api.h"

#define KIV_RWLOCK_SLOTS 7u /* lists in a lock table; the host chooses the list of each lock */

/* A thread's mode on a lock. */
#define KIV_RWLOCK_FREE 0u
#define KIV_RWLOCK_READ 1u
#define KIV_RWLOCK_WRITE 65535u

struct KivRWLockNode;

typedef struct KivRWLock {
  struct KivRWLockNode* readerTail; /* the last waiting reader */
  struct KivRWLockNode* writerHead; /* the writer to wake when the last reader leaves */
  struct KivRWLockNode* writerTail; /* the last writer that holds the lock or waits */
  uint64_t countAndFlags;           /* 1 writer interested, 2 writer active, 4 reader interested;
                                       units of 8: active readers */
  int32_t readerSpinLoops;          /* limits of a waiter; see KivSyncEnvInit */
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

/* A thread's lists of nodes, one list for each slot. The owner zeroes it before the first use. */
typedef struct KivRWLockTable {
  struct KivRWLockNode** active; /* nodes of locks that the thread holds or waits for */
  struct KivRWLockNode** free;   /* nodes of locks that it has released */
} KivRWLockTable;

KIV_ASSERT_SIZE(KivRWLockTable, 16);
KIV_ASSERT_FIELD(KivRWLockTable, active, 0);
KIV_ASSERT_FIELD(KivRWLockTable, free, 8);

/* Initialises a free lock. The first lock of a process also measures the spin budget
 * (KivSyncEnvInit).
 *
 *   ignored          any value
 *   callerValue      stored for the host; the lock does not read it
 *   lock             must not be null
 *   blockingAllowed  0: a waiter only spins until it may enter. Otherwise a waiter spins, yields,
 *                    and then sleeps in the kernel, within the limits from the environment (sync.h)
 *   slot             0 to KIV_RWLOCK_SLOTS - 1: the list of each thread's table that holds the
 *                    lock's nodes
 *
 * Always returns 0. One thread, before any other uses the lock. */
KIVSDU_API uint32_t KivRWLockInit(void* ignored, int32_t callerValue, KivRWLock* lock,
                                  uint8_t blockingAllowed, int32_t slot);

/* Take the lock for reading, take it for writing, and release it.
 *
 *   owner  the context of the allocations (manager.h), or null
 *   table  the calling thread's table; must not be null
 *   lock   must not be null
 *
 * 0, or KIV_ST_OUT_OF_MEMORY  no memory for a node or a list. A start has not taken the lock; an
 *                             end has released it
 *       KIV_ST_MUTEX_REQUEST  (KivSdStartWrite) the thread holds the lock for reading, and still
 *                             does
 *       KIV_ST_MUTEX_CLEAR    (KivSdEndRW) the thread does not hold the lock
 *       another status        of the memory manager, with the consequence of KIV_ST_OUT_OF_MEMORY
 * Any thread, each with its own table. */
KIVSDU_API uint32_t KivSdStartRead(void* owner, KivRWLockTable* table, KivRWLock* lock);
KIVSDU_API uint32_t KivSdStartWrite(void* owner, KivRWLockTable* table, KivRWLock* lock);
KIVSDU_API uint32_t KivSdEndRW(void* owner, KivRWLockTable* table, KivRWLock* lock);

/* Return whether the thread holds the lock (1 or 0), and its mode (KIV_RWLOCK_FREE, _READ or
 * _WRITE).
 *
 *   ignored  any value
 *   table    the calling thread's table */
KIVSDU_API int32_t KivSdOwnerRW(void* ignored, const KivRWLockTable* table, const KivRWLock* lock);
KIVSDU_API uint32_t KivSdModeRW(void* ignored, const KivRWLockTable* table, const KivRWLock* lock);

/* Frees all nodes and lists of a table and zeroes the table. The thread must neither hold a lock
 * nor wait for one. Always returns 0. */
KIVSDU_API uint32_t KivRWLockFreeQNodes(KivRWLockTable* table);

#endif
