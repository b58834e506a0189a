/* The memory manager behind the front of memory.h.
 *
 * Requests are served by the C runtime's allocator, shared with the callers: a block may be
 * given to the runtime's free and back. Results are statuses; no context record is written. Any
 * thread may free what any other allocated. */
#ifndef KIVSDU_MANAGER_H
#define KIVSDU_MANAGER_H

#include "api.h"

/* Placement policies. They matter once the memory-manager switch is on (KivSdSetMemoryManager). */
#define AD_POLICY_MANDATORY 1u /* smallest header, the size as asked for */
#define AD_POLICY_FULL 2u      /* full header, the size rounded to a power of two, cacheable */

/* Allocates a block of sizeBytes bytes, aligned for any type.
 *
 *   owner      the caller's context, or null for the default
 *   sizeBytes  at least 1
 *   block      receives the block, or null when there is no memory; must not be null. It is
 *              left alone when the size is 0
 *   policy     AD_POLICY_MANDATORY or AD_POLICY_FULL (adMalloc uses the latter)
 *   file,line  the caller's source position; accepted and not stored
 *
 * 0, or KIV_ST_ARGUMENT       sizeBytes is 0
 *       KIV_ST_OUT_OF_MEMORY  no memory */
KIVSDU_API uint32_t adMalloc(void* owner, uint64_t sizeBytes, void** block, const char* file,
                             uint32_t line);
KIVSDU_API uint32_t adMallocPolicy(void* owner, uint64_t sizeBytes, void** block, uint8_t policy,
                                   const char* file, uint32_t line);

/* Resizes a block, keeping its content up to the smaller size.
 *
 *   owner         the caller's context, or null for the default
 *   newSizeBytes  at least 1
 *   oldBlock      null asks for a new block, as adMalloc does
 *   newBlock      receives the block, which may have moved, or null when there is no memory;
 *                 the old block is then still whole. Must not be null
 *
 * 0, or KIV_ST_ARGUMENT       newSizeBytes is 0
 *       KIV_ST_OUT_OF_MEMORY  no memory */
KIVSDU_API uint32_t adRealloc(void* owner, uint64_t newSizeBytes, void* oldBlock, void** newBlock,
                              const char* file, uint32_t line);

/* Frees a block. Once the no-free switch is on (KivSdSetMemDeallocOption) it frees nothing and
 * returns 0, even for null.
 *
 * 0, or KIV_ST_ARGUMENT  block is null */
KIVSDU_API uint32_t adFree(void* block, const char* file, uint32_t line);

#endif
