/* Atomic operations, and the process-wide tuning of every lock that waits by spinning.
 *
 * None of these takes a context. Any thread. */
#ifndef KIVSDU_SYNC_H
#define KIVSDU_SYNC_H

#include "api.h"

/* ---- Atomic operations ----
 *
 * All that look at memory are full barriers. Mind the widths: adding works on 32 bits and returns
 * the old value sign-extended to 64; setting and comparing work on 64-bit words. Pointers are not
 * checked, and are aligned as their types. */

/* Stores newValue if the target holds `expected`. The target comes last. 1 if it did, else 0. */
KIVSDU_API int32_t KivSdCmpXchgPtr(uint64_t expected, uint64_t newValue, uint64_t* target);

/* A compare-and-swap of two words is not offered: always 0. */
KIVSDU_API int32_t KivSdCmpXchg2(void);

/* Add to a 32-bit integer, which wraps. The value before, sign-extended. */
KIVSDU_API int64_t KivSdAtomicAdd(int32_t* target, int32_t addend);
KIVSDU_API int64_t KivSdAtomicIncrement(int32_t* target);
KIVSDU_API int64_t KivSdAtomicDecrement(int32_t* target);

/* Turns 0 into 1, or 1 into 0. The value before: 0, or 1, means that this call did it. */
KIVSDU_API uint64_t KivSdAtomicSet(uint64_t* word);
KIVSDU_API uint64_t KivSdAtomicUnset(uint64_t* word);

/* Stores newValue if the word holds `expected`, both sign-extended to 64 bits. The target comes
 * first. 1 if it did, else 0. */
KIVSDU_API int32_t KivSdAtomicCompareAndSwap(uint64_t* word, int32_t expected, int32_t newValue);

/* A full, sequentially consistent fence. */
KIVSDU_API void KivSdMemoryBarrier(void);

/* Spin, without ever yielding and without a limit, until a byte is not zero, or is zero. The
 * byte's value. */
KIVSDU_API uint8_t KivSdWaitUntilTrue(const uint8_t* flag);
KIVSDU_API uint8_t KivSdWaitUntilFalse(const uint8_t* flag);

/* ---- Tuning ---- */

/* The rounds of pausing and looking again that a busy wait makes before it yields. 20000 until it
 * is measured. Not locked. */
KIVSDU_API int32_t KIV_SDSYNC_BUSYSPIN_UPPERLIMIT;

/* Measures the spin budget and reads the lock variables of the environment, once in a process.
 * Making the first spinlock or reader-writer lock does so too. Takes a tenth of a second and
 * more, and two threads of its own, which have ended when it returns. Two threads that come at
 * the same time may both do it, with one outcome.
 *
 * Not in a DllMain, and neither is the first lock made there: the call waits for the end of its
 * threads, which cannot end while a DllMain holds the loader's lock.
 *
 * In failover mode the measurement's pipes run the lease guard (settings.h), also on the two
 * threads. Where the guard itself comes here, or makes a lock, it returns at once: that lock has
 * the budget and the limits as they stand.
 *
 *   KIV_SPINLOCK_MAXSPINLOOPS, KIV_SPINLOCK_MAXSPINYIELDS, KIV_SPINLOCK_MAXWAITLOOPS
 *       shown, and used by no lock
 *   KIV_RWLOCK_RMAXSPINLOOPS, KIV_RWLOCK_RMAXSPINYIELDS, KIV_RWLOCK_RMAXWAITLOOPS
 *   KIV_RWLOCK_WMAXSPINLOOPS, KIV_RWLOCK_WMAXSPINYIELDS, KIV_RWLOCK_WMAXWAITLOOPS
 *       limits of reader-writer locks made from then on, for readers and for writers (rwlock.h)
 *   KIV_DISPLAY_LOCKCONFIG
 *       if it is set, to anything, the nine values are printed on the standard output */
KIVSDU_API void KivSyncEnvInit(void);

/* Measures the spin budget: the rounds that last as long as handing a byte from one thread to
 * another through a pipe. A machine of one processor gets 1.
 *
 *   limit  receives the budget, which is stored too; left alone on failure, as the budget is, and
 *          where the clock stands still; must not be null
 *
 * 0, or the status of the first pipe, thread or join that failed (pipe.h, thread.h)
 * One thread at a time. */
KIVSDU_API uint32_t KivGetSpinUpperLimit(int32_t* limit);

/* Chooses the design of every spinlock and lightweight spinlock of the process: 0, the default,
 * test-and-set; anything else, tickets, which admit threads in the order they came. Before the
 * first lock is made, and never changed while one exists. */
KIVSDU_API void KivSdSetHardwareAcceleration(uint8_t flag);

/* No list of spinlocks is kept: 0, and null. */
KIVSDU_API uint32_t KivSdGetSpinlockCount(void);
KIVSDU_API void* KivSdGetFirstAllocSpinlock(void);

#endif
