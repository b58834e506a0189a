/* Block lists, memory tags and mappings of the memory manager.
 *
 * Nothing here has an effect: blocks are neither tracked nor tagged on this platform, and there is
 * no list of them. Hosts and tools of several platforms call these all the same. Any thread. */
#ifndef KIVSDU_MEMTAGS_H
#define KIVSDU_MEMTAGS_H

#include "api.h"

/* ---- Block lists ---- */

/* A record of a block list: one block and who asked for it. Records lie back to back. */
typedef struct AdAllocBlock {
  void* memoryInfo;     /* the memory information that the block belongs to */
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

/* The first record of the block list, and the first memory information.
 *
 * Always null. */
KIVSDU_API const AdAllocBlock* adMemMgrGetAllocBlkHd(void);
KIVSDU_API const void* adMemMgrGetMemInfoHd(void);

/* The record that lies behind this one, whether or not the list goes on there; null for null. */
KIVSDU_API const AdAllocBlock* adMemMgrGetAllocBlkNxt(const AdAllocBlock* block);

/* What a record says: file, line, size in bytes, memory information.
 *
 *   block  may be null: the file is then the text "Null Pointer", the rest 0 */
KIVSDU_API const char* adMemMgrGetAllocBlkFN(const AdAllocBlock* block);
KIVSDU_API uint32_t adMemMgrGetAllocBlkLn(const AdAllocBlock* block);
KIVSDU_API uint32_t adMemMgrGetAllocBlkSz(const AdAllocBlock* block);
KIVSDU_API const void* adMemMgrGetAllocBlkMI(const AdAllocBlock* block);

/* ---- Tags ---- */

/* Whether a block has a tag, and whether the bytes around it are whole. They look at nothing and
 * are one entry.
 *
 * Always 1. */
KIVSDU_API int32_t adCheckMemTag(const void* block, uint64_t tag);
KIVSDU_API int32_t adCheckMemoryMarker(const void* block, uint64_t tag);

/* Give a block its information or its tag. They do nothing and are one entry with
 * KivSdBindThreadToNumaNode. */
KIVSDU_API void adMemInfo(const void* block, uint64_t tag);
KIVSDU_API void adSetMemTag(const void* block, uint64_t tag);

/* ---- Mappings ---- */

/* Map memory, remap it, unmap it. They are one entry, take any arguments, and do nothing with
 * them: a result that is passed by its address is left as it was.
 *
 * Always 0. */
KIVSDU_API uint32_t adMmap(void* ignored, ...);
KIVSDU_API uint32_t adMremap(void* ignored, ...);
KIVSDU_API uint32_t adMunmap(void* ignored, ...);

#endif
