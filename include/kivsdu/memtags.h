/* Block lists, memory tags and mappings of the memory manager.
 *
 * These operations have no effect: on this platform blocks are neither tracked nor tagged. They
 * exist for hosts and tools that run on several platforms. Any thread may call them. */
#ifndef KIVSDU_MEMTAGS_H
#define KIVSDU_MEMTAGS_H

#include "api.h"

/* ---- Block lists ---- */

/* A record of a block list: one block and the source position of its request. The list is an array
 * of records. */
typedef struct AdAllocBlock {
  void* memoryInfo;     /* memory information of the block */
  uint32_t reserved;    /* not read */
  uint32_t sizeBytes;   /* of the block */
  const char* file;     /* source position of the request */
  uint32_t line;        /* its line */
  uint32_t reservedEnd; /* not read */
} AdAllocBlock;

KIV_ASSERT_SIZE(AdAllocBlock, 32);
KIV_ASSERT_FIELD(AdAllocBlock, memoryInfo, 0);
KIV_ASSERT_FIELD(AdAllocBlock, reserved, 8);
KIV_ASSERT_FIELD(AdAllocBlock, sizeBytes, 12);
KIV_ASSERT_FIELD(AdAllocBlock, file, 16);
KIV_ASSERT_FIELD(AdAllocBlock, line, 24);
KIV_ASSERT_FIELD(AdAllocBlock, reservedEnd, 28);

/* Return the first record of the block list, and the first memory information. Both always return
 * null. */
KIVSDU_API const AdAllocBlock* adMemMgrGetAllocBlkHd(void);
KIVSDU_API const void* adMemMgrGetMemInfoHd(void);

/* Returns the address of the next record in the array, whether or not the array has one; null for
 * null. */
KIVSDU_API const AdAllocBlock* adMemMgrGetAllocBlkNxt(const AdAllocBlock* block);

/* Return the file, the line, the size in bytes and the memory information of a record.
 *
 *   block  may be null: the file is then the text "Null Pointer", all others are 0 or null */
KIVSDU_API const char* adMemMgrGetAllocBlkFN(const AdAllocBlock* block);
KIVSDU_API uint32_t adMemMgrGetAllocBlkLn(const AdAllocBlock* block);
KIVSDU_API uint32_t adMemMgrGetAllocBlkSz(const AdAllocBlock* block);
KIVSDU_API const void* adMemMgrGetAllocBlkMI(const AdAllocBlock* block);

/* ---- Tags ---- */

/* Check a block's tag, and the bytes around a block. Both names are one function, which ignores its
 * arguments.
 *
 * Always returns 1. */
KIVSDU_API int32_t adCheckMemTag(const void* block, uint64_t tag);
KIVSDU_API int32_t adCheckMemoryMarker(const void* block, uint64_t tag);

/* Set a block's information or its tag. Both do nothing; they are one function with
 * KivSdBindThreadToNumaNode (numa.h). */
KIVSDU_API void adMemInfo(const void* block, uint64_t tag);
KIVSDU_API void adSetMemTag(const void* block, uint64_t tag);

/* ---- Mappings ---- */

/* Map, remap and unmap memory. All three names are one function, which ignores its arguments:
 * nothing is mapped, and results passed by address are unchanged.
 *
 * Always returns 0. */
KIVSDU_API uint32_t adMmap(void* ignored, ...);
KIVSDU_API uint32_t adMremap(void* ignored, ...);
KIVSDU_API uint32_t adMunmap(void* ignored, ...);

#endif
