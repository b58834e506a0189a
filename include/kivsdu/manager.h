/* The memory manager behind the front of memory.h.
 *
 * It runs in one of two modes:
 *
 *   plain         The C runtime's allocator serves requests. While the memory-manager switch
 *                 (memory.h) is off, blocks are plain runtime blocks: the runtime's free takes a
 *                 block of adMalloc, and adFree takes a block of the runtime's malloc. While the
 *                 switch is on, blocks have a header.
 *   thread heaps  Requests up to "maxblock" come from a fixed number of heaps, each with its own
 *                 lock. The caller's context chooses the heap. Larger requests become large blocks.
 *                 All memory is counted and limited (memusage.h).
 *
 * Operations return their status and write no context record. Any thread may call them and may free
 * a block that another thread allocated. Exception: only the owner's thread frees blocks of a short
 * heap (shortheap.h).
 *
 * Placement in a heap depends on the requests alone: equal sequences of requests return equal
 * offsets.
 *
 * Payloads are aligned to 8 bytes in thread-heap mode, and under AD_POLICY_MANDATORY in plain mode
 * with the switch on; otherwise to 16 bytes, or to 8 after a fatal exception was recorded
 * (thread.h). Compilers expect 16 bytes of a block that holds a type which needs them, such as an
 * SSE vector: an access to such a block in a heap can end the process. Place these types by hand, in
 * a block that is 15 bytes larger.
 *
 * Start in this order:
 *
 *   1. settings and hooks (settings.h), and, if at all, KivSdSetMemoryManager (memory.h) and
 *      KivSdSetHardwareAcceleration (sync.h)
 *   2. adMemThreadHeapInit
 *   3. adMemSetThreadContext: set earlier, the context is lost, and no message is ever sent
 *   4. contexts, locks and other records; then the host's threads
 *
 * Free every block before adMemThreadHeapInit or adMemThreadHeapTerm changes the mode: one mode
 * cannot read the blocks of the other. A host therefore calls adMemThreadHeapInit before it creates
 * contexts and other records, and frees these before it calls adMemThreadHeapTerm.
 *
 * Nothing detects misuse, except in the checked flavour of the library (docs/checked.md). A block that
 * is freed twice can be handed out twice. Freeing an address
 * that is no block, writing past the end of a block, and using a block after it was freed damage
 * the heap; the failure shows later and elsewhere.
 *
 * Segregated fits, deferred coalescing and boundary tags: see P. R. Wilson et al., "Dynamic Storage
 * Allocation: A Survey and Critical Review", IWMM 1995.
 *
 * Example: examples/memory.c. */
#ifndef KIVSDU_MANAGER_H
#define KIVSDU_MANAGER_H

#include "api.h"

/* ---- Start and stop ---- */

/* Severities of a message. */
#define AD_SEVERITY_WARNING 3u
#define AD_SEVERITY_ERROR 4u

/* Receives the memory manager's messages, in the thread that met the shortage. It may allocate, and
 * must return.
 *
 *   handle         word 26 of the host's context (adMemSetThreadContext)
 *   status         see the table
 *   severity       AD_SEVERITY_WARNING or AD_SEVERITY_ERROR
 *   first, second  numbers of bytes modulo 2^32, if the table does not say otherwise
 *   firstTag       6: a 32-bit integer
 *   secondTag      6
 *
 * status                    severity  event                                first  second
 * KIV_ST_MSG_LIMIT_REFUSED  4         a request failed; there is a limit   total  request
 * KIV_ST_MSG_NO_MEMORY      4         a request failed; there is no limit  total  request
 * KIV_ST_MSG_LIMIT_NEAR     3         more than 90% of the limit is used   total  90 (percent)
 * KIV_ST_MSG_LIMIT_TOO_LOW  4         the configured limit was rejected    limit  10240 (KiB)
 *
 * The total is the memory in use. If an allocation failed, the total includes the request; if a
 * region of the host caused the warning (memusage.h), it includes the region.
 *
 * A message that follows another within 1000 allocations of the thread heaps may be suppressed. In
 * plain mode this count does not advance.
 *
 * The result is ignored, except by adMemCheckMemoryMinStatus, which returns it. */
typedef uint32_t (*AdMessageFunction)(uint64_t handle, uint32_t status, uint32_t severity,
                                      const uint32_t* first, uint32_t firstTag,
                                      const uint32_t* second, uint32_t secondTag);

/* Reads the memory configuration file (docs/configuration.md) and sets up thread heaps, or stays in
 * plain mode. Lists the configuration on standard output. One thread calls it, before the host
 * starts others.
 *
 *   enable    0 selects plain mode and reads no file
 *   messages  receives messages; null for none. Stored even if enable is 0
 *   suffix    reads "config.mem.<suffix>", or else "config.mem", in the folder "bin" of the
 *             directory that MOLTAPATH names; must not be null
 *   force     not 0: sets up thread heaps even without a file
 *
 * Compatibility: a second call after one that set up heaps reads no file and switches thread heaps
 * off. The first call after adMemThreadHeapTerm does the same. The call after it sets up new heaps,
 * and the old ones stay allocated. After a call that stayed in plain mode, a second one reads the
 * file again.
 *
 * 0, or KIV_ST_OUT_OF_MEMORY  the heaps could not be made. The manager is in plain mode, and the
 *                             heaps made so far stay allocated */
KIVSDU_API uint32_t adMemThreadHeapInit(uint32_t enable, AdMessageFunction messages,
                                        const char* suffix, uint32_t force);

/* Returns to plain mode. Releases no heap.
 *
 * Returns -1 if thread heaps were on or have been terminated before, else 0. */
KIVSDU_API int32_t adMemThreadHeapTerm(void);

/* Set and clear the context that messages are sent for, one for the process. Without a context no
 * message is sent. adMemThreadHeapInit clears it when it reads the configuration: set it after that
 * call.
 *
 *   context  a record of the host with at least 27 words of 64 bits, not the record of context.h.
 *            Word 26 is read whenever a message is sent. Null clears the context */
KIVSDU_API void adMemSetThreadContext(const void* context);
KIVSDU_API void adMemResetThreadContext(void);

/* ---- Blocks ---- */

/* Placement policies. They have an effect only in plain mode with the memory-manager switch on. A
 * thread's cache (threadcache.h) keeps only blocks of the full policy up to 2 MiB. */
#define AD_POLICY_MANDATORY 1u /* header of 8 bytes; the size is not rounded */
#define AD_POLICY_FULL 2u      /* header of 64 bytes; up to 2 MiB, rounded to a power of two */

/* Allocates a block.
 *
 *   owner      the caller's context, or null; chooses the heap; never dereferenced
 *   alignment  must be 0 in plain mode: another value ends the process through the runtime's
 *              assertion. Ignored in thread-heap mode and after a fatal exception (thread.h)
 *   sizeBytes  at least 1
 *   block      receives the block, or null when there is no memory; unchanged if sizeBytes is 0;
 *              must not be null
 *   policy     AD_POLICY_MANDATORY or AD_POLICY_FULL; other values are invalid. adMalloc and
 *              adMallocAligned use AD_POLICY_FULL
 *   file,line  the caller's source position; not stored
 *
 * 0, or KIV_ST_ARGUMENT       sizeBytes is 0
 *       KIV_ST_OUT_OF_MEMORY  no memory, or the limit would be exceeded; a message is sent */
KIVSDU_API uint32_t adMalloc(void* owner, uint64_t sizeBytes, void** block, const char* file,
                             uint32_t line);
KIVSDU_API uint32_t adMallocPolicy(void* owner, uint64_t sizeBytes, void** block, uint8_t policy,
                                   const char* file, uint32_t line);
KIVSDU_API uint32_t adMallocAligned(void* owner, uint64_t alignment, uint64_t sizeBytes,
                                    void** block, const char* file, uint32_t line);

/* Resizes a block and keeps its content up to the smaller size. If the block moves, the old one is
 * freed, even while the no-free switch is on. In plain mode with the memory-manager switch on, only
 * blocks with a header may be resized: another block may end the process through an assertion.
 *
 *   owner         the caller's context, or null
 *   newSizeBytes  at least 1
 *   oldBlock      null allocates a new block, as adMalloc does
 *   newBlock      receives the block, which may have moved, or null when there is no memory: the
 *                 old block is then unchanged. Unchanged if newSizeBytes is 0; must not be null
 *
 * 0, or KIV_ST_ARGUMENT       newSizeBytes is 0
 *       KIV_ST_OUT_OF_MEMORY  no memory, or the limit would be exceeded; a message is sent */
KIVSDU_API uint32_t adRealloc(void* owner, uint64_t newSizeBytes, void* oldBlock, void** newBlock,
                              const char* file, uint32_t line);

/* Allocates `count` elements and fills them with zero bytes.
 *
 *   owner             the caller's context, or null
 *   count             widened with its sign: -1 requests 2^64 - 1 elements
 *   elementSizeBytes  a product above 2^64 - 1 fails with KIV_ST_OUT_OF_MEMORY
 *   block             receives the block, or null on failure; must not be null, unless the product
 *                     is 0
 *   policy            as for adMallocPolicy
 *
 * 0, or KIV_ST_ARGUMENT       the product is 0
 *       KIV_ST_OUT_OF_MEMORY  no memory, or the limit would be exceeded; a message is sent */
KIVSDU_API uint32_t adCalloc(void* owner, int32_t count, uint64_t elementSizeBytes, void** block,
                             uint8_t policy);

/* Returns a copy of a text, followed by 4 zero bytes after its terminator; null when there is no
 * memory. The caller frees it with adFree.
 *
 *   text       must not be null
 *   file,line  the caller's source position; not stored */
KIVSDU_API char* adStrDup(const char* text, const char* file, uint32_t line);

/* Frees a block. While the no-free switch is on (KivSdSetMemDeallocOption) it frees nothing and
 * returns 0, even for null. A block must be freed once only; nothing checks this.
 *
 * 0, or KIV_ST_ARGUMENT  block is null; or, after a fatal exception in plain mode, it does not lie
 *                        in the exception stack (thread.h) */
KIVSDU_API uint32_t adFree(void* block, const char* file, uint32_t line);

/* Frees a block, even while the no-free switch is on.
 *
 *   alignedOrigin  not 0: in plain mode the block is a runtime block without a header
 *
 * 0, or KIV_ST_ARGUMENT  as for adFree */
KIVSDU_API uint32_t adFreeAligned(void* block, uint8_t alignedOrigin);

/* Allocate and free a block for a NUMA node. They call the runtime's malloc and free in every mode;
 * the system chooses the node, and the block is not counted. A handler of fatal exceptions must not
 * use them: they bypass the exception stack (thread.h), and the runtime's heap may be corrupt.
 *
 *   ignored    any value; alsoIgnored too
 *   sizeBytes  at least 1
 *   size       receives sizeBytes; must not be null
 *   block      receives the block, or null when there is no memory; must not be null. Both results
 *              are unchanged if sizeBytes is 0
 *
 * 0, or KIV_ST_ARGUMENT       sizeBytes is 0, or the block to free is null
 *       KIV_ST_OUT_OF_MEMORY  (adMallocOnNode) no memory; a message is sent */
KIVSDU_API uint32_t adMallocOnNode(void* ignored, uint64_t sizeBytes, uint64_t* size, void** block);
KIVSDU_API uint32_t adFreeOnNode(uint64_t ignored, uint64_t alsoIgnored, void* block);

#endif
