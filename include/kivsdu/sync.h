/* Atomic operations, and the process-wide tuning of every lock that waits by spinning.
 *
 * None of these takes a context. Any thread. */
#ifndef KIVSDU_SYNC_H
#define KIVSDU_SYNC_H

#include "api.h"

/* ---- Atomic operations ----
 *
 * Each is a full memory barrier, except KivSdCmpXchg2, which accesses no memory. Mind the widths:
 * addition works on 32 bits and returns the old value sign-extended to 64 bits; setting and
 * comparing work on 64-bit words. Pointers must not be null and must be aligned to their type;
 * nothing checks them. */

/* Compare-and-swap: stores newValue if the target holds `expected`. The target is the last
 * argument. Returns 1 if it stored, else 0. */
KIVSDU_API int32_t KivSdCmpXchgPtr(uint64_t expected, uint64_t newValue, uint64_t* target);

/* A compare-and-swap of two words is not offered. Always returns 0. */
KIVSDU_API int32_t KivSdCmpXchg2(void);

/* Add to a 32-bit integer, which wraps around. Return its old value, sign-extended to 64 bits. */
KIVSDU_API int64_t KivSdAtomicAdd(int32_t* target, int32_t addend);
KIVSDU_API int64_t KivSdAtomicIncrement(int32_t* target);
KIVSDU_API int64_t KivSdAtomicDecrement(int32_t* target);

/* Compare-and-swap 0 to 1 (set) and 1 to 0 (unset). Return the word's old value: a set that returns
 * 0, and an unset that returns 1, has changed the word. */
KIVSDU_API uint64_t KivSdAtomicSet(uint64_t* word);
KIVSDU_API uint64_t KivSdAtomicUnset(uint64_t* word);

/* Compare-and-swap: stores newValue if the word holds `expected`. Both are sign-extended to 64
 * bits. The target is the first argument. Returns 1 if it stored, else 0. */
KIVSDU_API int32_t KivSdAtomicCompareAndSwap(uint64_t* word, int32_t expected, int32_t newValue);

/* A full, sequentially consistent fence. */
KIVSDU_API void KivSdMemoryBarrier(void);

/* Spin until a byte is not 0 (true) or is 0 (false). They never yield and have no time-out. Return
 * the byte's last value. */
KIVSDU_API uint8_t KivSdWaitUntilTrue(const uint8_t* flag);
KIVSDU_API uint8_t KivSdWaitUntilFalse(const uint8_t* flag);

/* ---- Tuning ---- */

/* The spin budget: how many rounds a busy-wait pauses and re-reads before it yields. It is 20000
 * until it is measured. A measurement may yield 0; every busy-wait then yields at once. Not
 * locked. */
KIVSDU_API int32_t KIV_SDSYNC_BUSYSPIN_UPPERLIMIT;

/* Measures the spin budget and reads the lock variables of the environment, once in a process.
 * Creating the first spinlock or reader-writer lock calls this too. It takes at least a tenth of a
 * second, and runs two threads of its own, which have ended when it returns. Two threads that call
 * it at the same time may both do the work, with one outcome. Any thread.
 *
 * Danger: do not call it in a DllMain, and do not create the process's first lock there. The call
 * waits for its threads to end, and they cannot end while a DllMain holds the loader's lock.
 *
 * In failover mode the pipes of the measurement call the lease guard (settings.h), also on the two
 * threads. If the guard itself calls this operation or creates a lock, the inner call returns at
 * once. Such a lock takes the budget and the limits of that moment.
 *
 * Each variable is a decimal number; any other text counts as 0:
 *
 *   variable                                              default  correction
 *   KIV_SPINLOCK_MAXSPINLOOPS, KIV_SPINLOCK_MAXSPINYIELDS  1       below 1 becomes 1
 *   KIV_SPINLOCK_MAXWAITLOOPS                              0       none
 *   KIV_RWLOCK_RMAXSPINLOOPS, KIV_RWLOCK_WMAXSPINLOOPS     1       below 0 becomes 1
 *   KIV_RWLOCK_RMAXSPINYIELDS, KIV_RWLOCK_WMAXSPINYIELDS   0       below 0 becomes 0
 *   KIV_RWLOCK_RMAXWAITLOOPS, KIV_RWLOCK_WMAXWAITLOOPS     1       below 0 becomes 1
 *
 * The KIV_SPINLOCK_ limits are shown, but no lock uses them. The KIV_RWLOCK_ limits apply to
 * reader-writer locks that are initialised afterwards: R to their readers, W to their writers. If
 * KIV_DISPLAY_LOCKCONFIG is set, to any value, the nine limits are printed to the standard output.
 *
 * A waiter of a reader-writer lock works in rounds. A round spins for the budget, up to SPINLOOPS
 * times, and then yields up to SPINYIELDS times. After WAITLOOPS rounds and yields it sleeps in the
 * kernel; if WAITLOOPS is 0, it never sleeps. */
KIVSDU_API void KivSyncEnvInit(void);

/* Measures the spin budget: the number of rounds that last as long as passing a byte from one
 * thread to another through a pipe. On a machine with one processor the budget is 1. If the lease
 * guard calls this during a measurement, it returns the current budget at once.
 *
 *   limit  receives the new budget; must not be null. On failure, and if the clock does not
 *          advance, neither it nor the budget is changed
 *
 * Returns 0, or the status of the first pipe, thread or join that failed (pipe.h, thread.h). One
 * thread at a time. */
KIVSDU_API uint32_t KivGetSpinUpperLimit(int32_t* limit);

/* Chooses the design of every spinlock, lightweight spinlock and heap lock of the process. Call it
 * before the first lock or memory heap is created, and never while one exists: nothing checks this.
 *
 *   flag  0, the default, for test-and-set; any other value for tickets, which admit threads in the
 *         order of their arrival */
KIVSDU_API void KivSdSetHardwareAcceleration(uint8_t flag);

/* The library keeps no list of spinlocks. Always return 0 and null. */
KIVSDU_API uint32_t KivSdGetSpinlockCount(void);
KIVSDU_API void* KivSdGetFirstAllocSpinlock(void);

#endif
