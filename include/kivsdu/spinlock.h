/* Spinlocks: short mutual exclusion that never waits in the kernel.
 *
 * A waiter spins for the budget of sync.h and then gives up its time slice, again and again. Two
 * designs share the operations; KivSdSetHardwareAcceleration chooses:
 *
 *   test-and-set  one word exchanged; whoever comes at the right moment enters
 *   ticket        first come, first served; one lock lasts 2^31 entries, and then grants no more
 *
 * The ticket lock is that of J. M. Mellor-Crummey and M. L. Scott, "Algorithms for Scalable
 * Synchronization on Shared-Memory Multiprocessors", ACM TOCS 9(1), 1991.
 *
 * Taking and giving back are full fences. Nothing is reported: a thread that gives back a lock
 * it does not hold frees it under the holder. A holder must not block.
 *
 * Example: examples/locks.c. */
#ifndef KIVSDU_SPINLOCK_H
#define KIVSDU_SPINLOCK_H

#include "api.h"

/* ---- Spinlocks on the heap; the caller tells who it is ---- */

typedef struct KivSdSpinlock KivSdSpinlock;

/* Makes a free lock, and measures the spin budget if it is the first of the process (sync.h).
 *
 *   ignored, alsoIgnored  any values; hosts pass a context and a number of the lock
 *
 * The lock, or null when there is no memory. Any thread. */
KIVSDU_API KivSdSpinlock* KivSdSpinlockCreate(void* ignored, uint32_t alsoIgnored);

/* Frees a lock, held or not; null is ignored. */
KIVSDU_API void KivSdSpinlockDestroy(void* ignored, KivSdSpinlock* lock);

/* Take the lock, and give it back. The holder may take it again and gives it back as often.
 *
 *   thread  the caller's identifier (KivSdThreadIdGet), not 0; it is trusted
 *
 * A lock of tickets that was never taken must not be given back: its next taker would wait for
 * ever. After the first taking a surplus giving back does no harm. */
KIVSDU_API void KivSdSpinlockAcquire(KivSdSpinlock* lock, uint32_t thread);
KIVSDU_API void KivSdSpinlockRelease(KivSdSpinlock* lock);

/* The same without counting: with tickets a holder that takes it again waits for itself for ever.
 * With test-and-set taking counts all the same, and giving back frees the lock whatever the
 * count. Not to be mixed with the pair above. */
KIVSDU_API void KivSdSpinlockAcquireNonReentrant(KivSdSpinlock* lock, uint32_t thread);
KIVSDU_API void KivSdSpinlockReleaseNonReentrant(KivSdSpinlock* lock);

/* 1 if the thread holds the lock, else 0; on a free lock 1 for thread 0 alone. */
KIVSDU_API int32_t KivSdSpinlockOwner(const KivSdSpinlock* lock, uint32_t thread);

/* How often the holder has taken the lock; 16 bits. */
KIVSDU_API uint32_t KivSdGetSpinlockRefCount(const KivSdSpinlock* lock);

/* ---- Lightweight spinlocks in the caller's storage; the lock finds out who calls ---- */

/* The caller's storage; must not be moved while in use. */
typedef struct KivSdLWSpinlock {
  uint64_t opaque[8];
} KivSdLWSpinlock;

KIV_ASSERT_SIZE(KivSdLWSpinlock, 64);

/* Prepare a free lock, and end one. Always 0. */
KIVSDU_API uint32_t KivSdLWSpinlockInit(KivSdLWSpinlock* lock);
KIVSDU_API uint32_t KivSdLWSpinlockDestroy(KivSdLWSpinlock* lock);

/* Take the lock, and give it back. The holder may take it again and gives it back as often. With
 * tickets, giving back what another thread holds is a programming error that ends the process
 * through the runtime's assertion "ThdId == pLWLockticket->ThdId". */
KIVSDU_API void KivSdLWSpinlockAcquire(KivSdLWSpinlock* lock);
KIVSDU_API void KivSdLWSpinlockRelease(KivSdLWSpinlock* lock);

/* 1 if the calling thread holds the lock, else 0. */
KIVSDU_API int32_t KivSdLWSpinlockOwner(const KivSdLWSpinlock* lock);

#endif
