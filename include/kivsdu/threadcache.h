/* The thread allocator: a thread's own cache of freed blocks.
 *
 * It works in plain mode while the memory-manager switch is on (KivSdSetMemoryManager). A thread
 * with a cache keeps the blocks that it frees, in 32 classes of powers of two, and reuses them for
 * requests of the same class, without the C runtime and without a lock. Blocks of
 * AD_POLICY_MANDATORY and blocks above 2 MiB always return to the runtime.
 *
 * Only its own thread uses a cache. A block that another thread allocated enters the cache of the
 * thread that frees it. A thread must destroy its cache before it ends; otherwise the cache and its
 * blocks are lost.
 *
 * A thread with a cache must not free a block that was allocated while the switch was off, or that
 * is in a cache already: either may end the process through the runtime's assertion
 * ("pHdr->policy != 0"). */
#ifndef KIVSDU_THREADCACHE_H
#define KIVSDU_THREADCACHE_H

#include "api.h"

/* Creates the calling thread's cache. Does nothing if the thread has one or the memory-manager
 * switch is off. Without memory the thread has no cache afterwards.
 *
 * The cache takes blocks until their bytes, with headers of 64 bytes, exceed the limit; the block
 * that exceeds it is still taken. The limit is 100 MiB if hardware acceleration is on at this call
 * (KivSdSetHardwareAcceleration), else 8 MiB.
 *
 * Always returns 0. */
KIVSDU_API uint32_t adCreateThreadAlloc(void);

/* Frees the calling thread's cache and its blocks. Does nothing if the thread has no cache.
 *
 * Always returns 0. */
KIVSDU_API uint32_t adDestroyThreadAlloc(void);

/* Fills the calling thread's cache up to the preallocation targets if hardware acceleration is on.
 * All targets are 0: nothing is allocated. */
KIVSDU_API void adThreadPrealloc(void);

/* Frees all blocks of the calling thread's cache, but not the cache. With hardware acceleration it
 * frees down to the preallocation targets, which are all 0.
 *
 * Always returns 0. */
KIVSDU_API uint32_t adFreelistCompaction(void);

#endif
