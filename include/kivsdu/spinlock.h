/* Spinlocks: mutual exclusion for short critical sections, without waiting in the kernel.
 *
 * A waiter spins for the budget of sync.h, yields its time slice, and repeats, without a limit.
 * KivSdSetHardwareAcceleration chooses between two designs of one interface:
 *
 *   test-and-set  exchanges one word; waiters enter in no particular order
 *   ticket        first come, first served; one lock lasts 2^31 acquisitions and then admits nobody
 *
 * The ticket lock is that of J. M. Mellor-Crummey and M. L. Scott, "Algorithms for Scalable
 * Synchronization on Shared-Memory Multiprocessors", ACM TOCS 9(1), 1991.
 *
 * Acquiring and releasing are full fences. The owner must not block. Except where an assertion is
 * named, ownership is not checked: a thread that releases a lock owned by another thread decrements
 * the owner's count, and can free the lock while the owner is in its critical section.
 *
 * Any thread. A lock must not be null, except in KivSdSpinlockDestroy.
 *
 * Example: examples/locks.c. */
#ifndef KIVSDU_SPINLOCK_H
#define KIVSDU_SPINLOCK_H

#include "api.h"

/* ---- Spinlocks on the heap; the caller passes its thread identifier ---- */

typedef struct KivSdSpinlock KivSdSpinlock;

/* Creates a free lock. The first lock of a process also measures the spin budget (KivSyncEnvInit).
 *
 *   ignored      any value; hosts pass a context
 *   alsoIgnored  any value; hosts pass a number of the lock
 *
 * Returns the lock, or null if there is no memory. */
KIVSDU_API KivSdSpinlock* KivSdSpinlockCreate(void* ignored, uint32_t alsoIgnored);

/* Frees a lock. Does not check that no thread holds it.
 *
 *   ignored  any value
 *   lock     null is ignored */
KIVSDU_API void KivSdSpinlockDestroy(void* ignored, KivSdSpinlock* lock);

/* Acquire and release the lock. The owner may acquire it again, and must release it as often.
 *
 *   thread  the caller's identifier (KivSdThreadIdGet); not 0. It is trusted
 *
 * Releasing a free lock is harmless, with one exception. Danger: do not release a ticket lock that
 * was never acquired; the next thread to acquire it would wait forever. */
KIVSDU_API void KivSdSpinlockAcquire(KivSdSpinlock* lock, uint32_t thread);
KIVSDU_API void KivSdSpinlockRelease(KivSdSpinlock* lock);

/* Acquire and release the lock without counting. Pair these only with each other, not with the two
 * operations above.
 *
 * With tickets, an owner that acquires the lock again waits for itself forever. Test-and-set counts
 * the acquisitions all the same, but one release frees the lock whatever the count is. */
KIVSDU_API void KivSdSpinlockAcquireNonReentrant(KivSdSpinlock* lock, uint32_t thread);
KIVSDU_API void KivSdSpinlockReleaseNonReentrant(KivSdSpinlock* lock);

/* Returns 1 if the thread owns the lock, else 0. A free lock is owned by thread 0. */
KIVSDU_API int32_t KivSdSpinlockOwner(const KivSdSpinlock* lock, uint32_t thread);

/* Returns how often the owner has acquired the lock without releasing it; 16 bits. */
KIVSDU_API uint32_t KivSdGetSpinlockRefCount(const KivSdSpinlock* lock);

/* ---- Lightweight spinlocks in the caller's storage; the lock finds the thread identifier ---- */

/* A lock, in the caller's storage. It must not be moved while it is in use. */
typedef struct KivSdLWSpinlock {
  uint64_t opaque[8];
} KivSdLWSpinlock;

KIV_ASSERT_SIZE(KivSdLWSpinlock, 64);

/* Initialise a free lock, and end a lock. Ending does not check that no thread holds it. Always
 * return 0. One thread, while no other uses the lock. */
KIVSDU_API uint32_t KivSdLWSpinlockInit(KivSdLWSpinlock* lock);
KIVSDU_API uint32_t KivSdLWSpinlockDestroy(KivSdLWSpinlock* lock);

/* Acquire and release the lock. The owner may acquire it again, and must release it as often.
 *
 * With tickets, releasing a lock that the thread does not own is a programming error: it ends the
 * process through the runtime's assertion "ThdId == pLWLockticket->ThdId". With test-and-set,
 * releasing a free lock is harmless; the lock stays free. */
KIVSDU_API void KivSdLWSpinlockAcquire(KivSdLWSpinlock* lock);
KIVSDU_API void KivSdLWSpinlockRelease(KivSdLWSpinlock* lock);

/* Returns 1 if the calling thread owns the lock, else 0. */
KIVSDU_API int32_t KivSdLWSpinlockOwner(const KivSdLWSpinlock* lock);

#endif
