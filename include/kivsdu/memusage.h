/* Memory in use: totals, marks and limit, regions that the host registers, statistics of blocks.
 *
 * The memory manager counts what it takes from the system for heaps, short heaps and large blocks
 * while memory control is on. adMemThreadHeapInit turns it on when it finds a configuration file
 * without "nomemorycontrol", or finds none and is forced to go without. Sizes are bytes unless a
 * name says otherwise. Any thread may call.
 *
 * Example: examples/memory.c. */
#ifndef KIVSDU_MEMUSAGE_H
#define KIVSDU_MEMUSAGE_H

#include "api.h"

/* Unit of memory that counts are given in, in bytes. */
#define AD_MEMORY_UNIT 8192u

/* Size classes of the statistics: up to 160 bytes, up to 1024, then up to each power of two to
 * 2^23, and above. */
#define AD_BLOCK_CLASSES 16u

/* What is in use now, and the highest since initialisation. Nothing is written when memory control
 * is off; no pointer may be null.
 *
 *   usedOutsideHeaps  held for short heaps and large blocks
 *   inHeaps           held for thread heaps, spare ones included. This and the former are 0 while
 *                     there are no thread heaps
 *   aligned           registered with adMemAlignedIncCounter
 *   usedPeak          highest that was held, thread heaps included
 *   alignedPeak       highest that was registered
 *   totalPeak         highest of both together
 *
 * 0, or 0xFFFFFFFF when memory control is off */
KIVSDU_API uint32_t adMemGetUsedMemory(uint64_t* usedOutsideHeaps, uint64_t* inHeaps,
                                       uint64_t* aligned, uint64_t* usedPeak, uint64_t* alignedPeak,
                                       uint64_t* totalPeak);

/* The same three heights since they were last set back, and setting them back to what is in use
 * now. Pointers and statuses as above. */
KIVSDU_API uint32_t adMemGetMaxUsedMarkMemory(uint64_t* usedMark, uint64_t* alignedMark,
                                              uint64_t* totalMark);
KIVSDU_API uint32_t adMemResetMaxUsedMarkMemory(void);

/* How many blocks were allocated and freed, by size class. A reallocation counts as a free and an
 * allocation, and its old size twice when the block moves; an arena of a short heap that an owner
 * gives back to the system counts twice as well; a request of 0 bytes counts as a free.
 *
 *   selector          1: since initialisation; any other: since adMemResetUsedMarkMemoryBlocks
 *   allocated, freed  AD_BLOCK_CLASSES counts each; they wrap at 2^32. Must not be null
 *
 * Statistics are of thread-heap mode. Where the initialisation leaves plain mode there are none,
 * whatever the configuration says; after adMemThreadHeapTerm the counts stay as they are.
 *
 * 0, or 0xFFFFFFFF when there are no statistics: the configuration does not say
 * "memoryblockscontrol", or no thread heaps were made */
KIVSDU_API uint32_t adMemGetUsedMemoryBlocks(uint32_t selector, uint64_t* allocated,
                                             uint64_t* freed);
KIVSDU_API uint32_t adMemResetUsedMarkMemoryBlocks(void);

/* The configuration that holds.
 *
 *   settings  seven words: limit (0: none), slots of thread heaps, initial heap budget, bytes of a
 *             thread heap, bytes of a short heap (0: no short heaps), largest request that heaps
 *             serve, memory control (1 or 0). The second to fifth are 0 when the sixth is
 *
 * Memory control. */
KIVSDU_API uint32_t adMemGetMemorySettings(uint64_t* settings);

/* Adds a region that the host took elsewhere to the totals, and takes it out again. An address may
 * be registered several times; the last registration is taken out first, and what was never
 * registered is ignored. Does nothing while memory control is off.
 *
 *   address     of the region; a key, never read. A null address is counted and never taken out
 *   blockCount  size in units of AD_MEMORY_UNIT; the bytes are computed in 32 bits, with a sign
 *
 * However many threads register and allocate, together they stay within the limit, and a request
 * that is refused makes no other fail. A record is a block of 24 bytes from a heap: only where it
 * needs a large block or a new heap may these pass the limit, by what they take. A region that
 * brings the total above 90% of the limit warns the host at once, in plain mode too, unless a
 * warning is pending already. Once the no-free switch is on (memory.h) the record of a region that
 * is taken out stays allocated.
 *
 * 0, or KIV_ST_ALIGNED_COMMIT  the region would pass the memory limit, of which the host is told by
 *                              a message (manager.h), or there is no memory for its record */
KIVSDU_API uint32_t adMemAlignedIncCounter(const void* address, uint32_t blockCount);
KIVSDU_API void adMemAlignedDecCounter(const void* address);

/* Tells the host by a message that memory it took elsewhere was refused. Does nothing while memory
 * control is off.
 *
 *   blockCount  what was asked for, in units of AD_MEMORY_UNIT */
KIVSDU_API void adMemSendErrorMessage(uint32_t blockCount);

/* Tells the host, if the limit of the configuration was below 10 MiB and therefore rejected, so:
 * KIV_ST_MSG_LIMIT_TOO_LOW with the rejected limit and the least one in KiB.
 *
 *   context  as of adMemSetThreadContext, for this message; must not be null
 *
 * 0 when the limit was not rejected, else what the message function returned. */
KIVSDU_API uint32_t adMemCheckMemoryMinStatus(const void* context);

#endif
