/* The memory manager behind the front of memory.h.
 *
 * It runs in one of two modes:
 *
 *   plain         requests are served by the C runtime's allocator. While the memory-manager switch
 *                 is off (memory.h), blocks are shared with the callers: a block may be given to
 *                 the runtime's free and back. While it is on, blocks carry a header.
 *   thread heaps  requests up to "maxblock" come from a fixed number of heaps, each with its own
 *                 lock; the caller's context chooses the heap. Larger ones become large blocks.
 *                 Everything is counted against a limit (memusage.h).
 *
 * Results are statuses; no context record is written. Any thread may call, and free what any other
 * allocated. Heaps place blocks by the requests alone: the same requests in the same order give
 * the same offsets. Payloads are aligned to 8 bytes in thread-heap mode and under the mandatory
 * policy in plain mode with the switch on, and otherwise for any type.
 *
 * A block must not cross adMemThreadHeapInit or adMemThreadHeapTerm: what one mode made, the other
 * misreads. A host makes its contexts and everything else after the first and frees it before the
 * second.
 *
 * Segregated fits, deferred coalescing and boundary tags: see P. R. Wilson et al., "Dynamic Storage
 * Allocation: A Survey and Critical Review", IWMM 1995.
 *
 * Example: examples/memory.c. */
#ifndef KIVSDU_MANAGER_H
#define KIVSDU_MANAGER_H

#include "api.h"

/* ---- Start and stop ---- */

/* Receives the memory manager's messages, in whatever thread met the shortage. It may allocate, and
 * must return.
 *
 *   handle         word 26 of the host's context (adMemSetThreadContext)
 *   status         KIV_ST_MSG_LIMIT_REFUSED  a request failed; there is a limit
 *                  KIV_ST_MSG_NO_MEMORY      a request failed; there is no limit
 *                  KIV_ST_MSG_LIMIT_NEAR     more than 90% of the limit is in use
 *                  KIV_ST_MSG_LIMIT_TOO_LOW  the configured limit was rejected
 *   severity       3 for a warning, 4 for an error
 *   first, second  what the message says, by status: bytes in use and requested; the same; bytes in
 *                  use and 90; the limit and 10240. All modulo 2^32
 *   firstTag, secondTag  6: a 32-bit integer
 *
 * Its result matters to adMemCheckMemoryMinStatus alone. */
typedef uint32_t (*AdMessageFunction)(uint64_t handle, uint32_t status, uint32_t severity,
                                      const uint32_t* first, uint32_t firstTag,
                                      const uint32_t* second, uint32_t secondTag);

/* Reads the memory configuration file and sets up thread heaps, or stays in plain mode. By one
 * thread, before the host's others start.
 *
 *   enable    0: plain mode, whatever the file says
 *   messages  receives messages; null for none
 *   suffix    "config.mem.<suffix>" is looked for before "config.mem", in the folder "bin" below
 *             what MOLTAPATH names; must not be null
 *   force     not 0: thread heaps even without a file
 *
 * A second call switches thread heaps off and reads nothing; a third sets them up anew, and heaps
 * of before stay where they are. The configuration is listed on standard output.
 *
 * 0, or KIV_ST_OUT_OF_MEMORY  the heaps could not be made. The manager is in plain mode, and what
 *                             was made stays allocated */
KIVSDU_API uint32_t adMemThreadHeapInit(uint32_t enable, AdMessageFunction messages,
                                        const char* suffix, uint32_t force);

/* Back to plain mode. No heap is released. -1 if thread heaps were on, else the number of slots
 * there were: 0, or -1 when they have been terminated before. */
KIVSDU_API int32_t adMemThreadHeapTerm(void);

/* Whom messages are for, one for the process. Without a context nothing is sent.
 *
 *   context  a host's record of at least 27 64-bit words, of which word 26 is read when a message
 *            is sent; not the record of context.h */
KIVSDU_API void adMemSetThreadContext(const void* context);
KIVSDU_API void adMemResetThreadContext(void);

/* ---- Blocks ---- */

/* Placement policies. They matter in plain mode with the memory-manager switch on. */
#define AD_POLICY_MANDATORY 1u /* header of 8 bytes, the size as asked for */
#define AD_POLICY_FULL 2u      /* header of 64, the size rounded to a power of two, cacheable */

/* Allocates a block.
 *
 *   owner      the caller's context, or null; chooses the heap and is never read
 *   alignment  accepted and not used in thread-heap mode, and once a fatal exception has been
 *              recorded. Otherwise not 0 is a programming error: the process ends through the
 *              runtime's assertion
 *   sizeBytes  at least 1
 *   block      receives the block, or null when there is no memory; must not be null. It is
 *              left alone when the size is 0
 *   policy     AD_POLICY_MANDATORY or AD_POLICY_FULL (the others use the latter)
 *   file,line  the caller's source position; accepted and not stored
 *
 * 0, or KIV_ST_ARGUMENT       sizeBytes is 0
 *       KIV_ST_OUT_OF_MEMORY  no memory, or the memory limit; the host is told by a message */
KIVSDU_API uint32_t adMalloc(void* owner, uint64_t sizeBytes, void** block, const char* file,
                             uint32_t line);
KIVSDU_API uint32_t adMallocPolicy(void* owner, uint64_t sizeBytes, void** block, uint8_t policy,
                                   const char* file, uint32_t line);
KIVSDU_API uint32_t adMallocAligned(void* owner, uint64_t alignment, uint64_t sizeBytes,
                                    void** block, const char* file, uint32_t line);

/* Resizes a block, keeping its content up to the smaller size. A block that moves is freed where it
 * was, even once the no-free switch is on.
 *
 *   owner         the caller's context, or null
 *   newSizeBytes  at least 1
 *   oldBlock      null asks for a new block, as adMalloc does
 *   newBlock      receives the block, which may have moved, or null when there is no memory;
 *                 the old block is then still whole. Must not be null
 *
 * 0, or KIV_ST_ARGUMENT       newSizeBytes is 0
 *       KIV_ST_OUT_OF_MEMORY  no memory, or the memory limit; the host is told by a message */
KIVSDU_API uint32_t adRealloc(void* owner, uint64_t newSizeBytes, void* oldBlock, void** newBlock,
                              const char* file, uint32_t line);

/* Allocates `count` elements and sets them to zero bytes.
 *
 *   count             widened with its sign: -1 asks for 2^64 - 1 elements
 *   elementSizeBytes  a product above 2^64 - 1 is more memory than there is
 *   block             receives the block, or null, for a product of 0 as well; may be null then
 *   policy            as of adMallocPolicy
 *
 * 0, or KIV_ST_ARGUMENT       the product is 0
 *       KIV_ST_OUT_OF_MEMORY  as of adMalloc */
KIVSDU_API uint32_t adCalloc(void* owner, int32_t count, uint64_t elementSizeBytes, void** block,
                             uint8_t policy);

/* A copy of a text, to be freed with adFree, with 4 zero bytes behind its terminator. Null when
 * there is no memory. The text must not be null. */
KIVSDU_API char* adStrDup(const char* text, const char* file, uint32_t line);

/* Frees a block. Once the no-free switch is on (KivSdSetMemDeallocOption) it frees nothing and
 * returns 0, even for null.
 *
 * 0, or KIV_ST_ARGUMENT  block is null */
KIVSDU_API uint32_t adFree(void* block, const char* file, uint32_t line);

/* Frees a block whatever the no-free switch says.
 *
 *   alignedOrigin  not 0: in plain mode the block is the runtime's own, without a header
 *
 * 0, or KIV_ST_ARGUMENT  block is null */
KIVSDU_API uint32_t adFreeAligned(void* block, uint8_t alignedOrigin);

/* Blocks for a NUMA node: the runtime's own, whose node the system chooses. Not counted. It is the
 * runtime's malloc and free in every mode, also once a fatal exception has been recorded: the
 * exception stack does not serve them, and no thread is stopped in them. A handler of fatal
 * exceptions must not use them, for the runtime's heap may be what broke.
 *
 *   ignored  any values
 *   size     receives sizeBytes; must not be null
 *   block    receives the block, or null when there is no memory; must not be null
 *
 * 0, or KIV_ST_ARGUMENT       sizeBytes is 0, or the block to free is null
 *       KIV_ST_OUT_OF_MEMORY  no memory; the host is told by a message */
KIVSDU_API uint32_t adMallocOnNode(void* ignored, uint64_t sizeBytes, uint64_t* size, void** block);
KIVSDU_API uint32_t adFreeOnNode(uint64_t ignored, uint64_t alsoIgnored, void* block);

#endif
