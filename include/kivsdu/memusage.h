/* Memory in use: totals, marks and limit; regions of the host; statistics of blocks.
 *
 * While memory control is on, the memory manager counts the memory that it allocates for heaps,
 * short heaps and large blocks. adMemThreadHeapInit turns memory control on if it finds a
 * configuration file without "nomemorycontrol", or if it is forced to run without a file. Sizes are
 * in bytes unless a name says otherwise. No pointer may be null unless a comment allows it. Any
 * thread may call.
 *
 * Example: examples/memory.c. */
#ifndef KIVSDU_MEMUSAGE_H
#define KIVSDU_MEMUSAGE_H

#include "api.h"

/* Bytes of a block in the block counts below. */
#define AD_MEMORY_UNIT 8192u

/* Size classes of the statistics: up to 160 bytes, up to 1024 bytes, up to each power of two from
 * 2^11 to 2^23, and above. */
#define AD_BLOCK_CLASSES 16u

/* Returns the memory in use, and its peaks since initialisation. Without memory control nothing is
 * written.
 *
 *   usedOutsideHeaps  memory of short heaps and large blocks. It is the difference of two figures
 *                     of different moments: while another thread makes heaps, it may be below 0,
 *                     which is a number near 2^64
 *   inHeaps           memory of thread heaps, spare ones included. This and usedOutsideHeaps are 0
 *                     in plain mode, except after adMemThreadHeapTerm
 *   aligned           memory registered with adMemAlignedIncCounter
 *   usedPeak          peak of the memory of thread heaps, short heaps and large blocks
 *   alignedPeak       peak of the registered memory
 *   totalPeak         peak of the sum of both
 *
 * 0, or 0xFFFFFFFF if memory control is off */
KIVSDU_API uint32_t adMemGetUsedMemory(uint64_t* usedOutsideHeaps, uint64_t* inHeaps,
                                       uint64_t* aligned, uint64_t* usedPeak, uint64_t* alignedPeak,
                                       uint64_t* totalPeak);

/* Return the marks: the three peaks since the last reset. Reset the marks to the memory in use.
 *
 *   usedMark, alignedMark, totalMark  as the peaks above; unchanged without memory control
 *
 * 0, or 0xFFFFFFFF if memory control is off */
KIVSDU_API uint32_t adMemGetMaxUsedMarkMemory(uint64_t* usedMark, uint64_t* alignedMark,
                                              uint64_t* totalMark);
KIVSDU_API uint32_t adMemResetMaxUsedMarkMemory(void);

/* Return the numbers of allocated and freed blocks by size class; reset the numbers since the last
 * reset to 0.
 *
 *   selector          1: since initialisation; any other value: since the last reset
 *   allocated, freed  receive AD_BLOCK_CLASSES counts each, modulo 2^32
 *
 * A reallocation counts a free of the old size and an allocation of the new size.
 * Compatibility: a block that moves counts the free twice, and so does the arena of a short heap
 * that is released when its owner ends. A request of 0 bytes counts as a free.
 *
 * Only thread-heap mode counts blocks. After adMemThreadHeapTerm the counts stay as they are.
 *
 * 0, or 0xFFFFFFFF if the configuration does not have "memoryblockscontrol", or no thread heaps
 * were set up */
KIVSDU_API uint32_t adMemGetUsedMemoryBlocks(uint32_t selector, uint64_t* allocated,
                                             uint64_t* freed);
KIVSDU_API uint32_t adMemResetUsedMarkMemoryBlocks(void);

/* Returns the settings in use.
 *
 *   settings  receives seven words:
 *             0  memory limit; 0 for none
 *             1  slots of thread heaps; 2^64 - 1 after adMemThreadHeapTerm
 *             2  initial heap budget: thread heaps that may exist in total
 *             3  bytes of a thread heap
 *             4  bytes of a short heap; 0 without short heaps
 *             5  largest request that a heap serves. If it is 0, words 1 to 4 are 0
 *             6  memory control: 1 on, 0 off
 *
 * Always returns word 6. */
KIVSDU_API uint32_t adMemGetMemorySettings(uint64_t* settings);

/* Register memory that the host allocated elsewhere, a region, so that the totals include it, and
 * remove it again. An address may be registered several times; the last registration is removed
 * first. Removing an unknown address does nothing. Without memory control neither does anything.
 *
 *   address     of the region; a key, never dereferenced. A null address is counted, but cannot be
 *               removed
 *   blockCount  size in blocks of AD_MEMORY_UNIT bytes. The bytes are a signed number of 32 bits:
 *               262144 blocks or more count as negative or wrap
 *
 * Registering and allocating threads together stay within the limit, and a refused request never
 * makes another request fail. The record of a region is a block of 24 bytes. If it needs a large
 * block or a new heap, these may exceed the limit by their own size.
 *
 * A region that raises the total above 90% of the limit sends the warning at once, also in plain
 * mode, unless a warning is pending. While the no-free switch is on (memory.h), the record of a
 * removed region stays allocated.
 *
 * 0, or KIV_ST_ALIGNED_COMMIT  the region would exceed the limit; a message is sent (manager.h). Or
 *                              there is no memory for its record */
KIVSDU_API uint32_t adMemAlignedIncCounter(const void* address, uint32_t blockCount);
KIVSDU_API void adMemAlignedDecCounter(const void* address);

/* Sends the message that a request failed (manager.h), for memory that the host allocates
 * elsewhere. Does nothing without memory control.
 *
 *   blockCount  requested size in blocks of AD_MEMORY_UNIT bytes */
KIVSDU_API void adMemSendErrorMessage(uint32_t blockCount);

/* Sends KIV_ST_MSG_LIMIT_TOO_LOW (manager.h) if the configured limit was below 10 MiB and therefore
 * rejected.
 *
 *   context  for this message; a record as for adMemSetThreadContext; must not be null
 *
 * Returns 0 if the limit was not rejected or there is no message function, else the result of the
 * message function. */
KIVSDU_API uint32_t adMemCheckMemoryMinStatus(const void* context);

#endif
