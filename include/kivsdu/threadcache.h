/* The thread allocator: a thread's own cache of freed blocks.
 *
 * It works in plain mode while the memory-manager switch is on (KivSdSetMemoryManager). A thread
 * that has one keeps the blocks that it frees, in 32 classes of powers of two, and takes them again
 * for requests of the same class, without the C runtime and without a lock. Blocks under
 * AD_POLICY_MANDATORY and those above 2 MiB always go back to the runtime.
 *
 * A cache is its thread's alone. A block that another thread allocated enters the cache of the
 * thread that frees it. A thread destroys its cache before it ends: else the cache and what lies
 * in it are lost. While a thread has a cache it frees no block that was made with the switch off:
 * such a free ends the process through the runtime's assertion, as does that of a block which is
 * in a cache already ("pHdr->policy != 0"). */
#ifndef KIVSDU_THREADCACHE_H
#define KIVSDU_THREADCACHE_H

#include "api.h"

/* Makes the calling thread's cache. Does nothing when the thread has one or the memory-manager
 * switch is off, and leaves the thread without one when there is no memory.
 *
 * The cache takes blocks until they exceed 8 MiB, headers of 64 bytes included, or 100 MiB when
 * hardware acceleration is on at this moment (KivSdSetHardwareAcceleration); the block with which
 * they do so is still taken.
 *
 * Always 0. */
KIVSDU_API uint32_t adCreateThreadAlloc(void);

/* Gives the calling thread's cache and everything in it back to the C runtime; does nothing when
 * the thread has none.
 *
 * Always 0. */
KIVSDU_API uint32_t adDestroyThreadAlloc(void);

/* Fills the calling thread's cache up to the preallocation targets, if hardware acceleration is
 * on. The targets are all 0, so nothing is allocated. */
KIVSDU_API void adThreadPrealloc(void);

/* Empties the calling thread's cache: down to the preallocation targets with hardware
 * acceleration, to no bytes without. The cache itself stays.
 *
 * Always 0. */
KIVSDU_API uint32_t adFreelistCompaction(void);

#endif
