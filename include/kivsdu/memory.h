/* The memory front: blocks, copies, and whole pages.
 *
 * Any thread. A context may always be null. Page counts are in units of KIV_PAGE_UNIT (8192
 * bytes), whatever page the machine uses. The byte size is the count shifted left by 13 in 32
 * bits: a count of 524288 or more wraps modulo 2^32.
 *
 * Example: examples/hello.c. */
#ifndef KIVSDU_MEMORY_H
#define KIVSDU_MEMORY_H

#include "api.h"
#include "context.h"

/* Allocates a block, aligned for any type; to 8 bytes under AD_POLICY_MANDATORY while the
 * memory-manager switch is on.
 *
 *   reserved   ignored
 *   sizeBytes  at least 1
 *   out        receives the block, or null when there is no memory; must not be null
 *   policy     placement policy, AD_POLICY_MANDATORY or AD_POLICY_FULL (manager.h)
 *   file,line  the caller's source position
 *
 * 0, or KIV_ST_ARGUMENT       sizeBytes is 0 or out is null; the allocator is not called
 *       KIV_ST_OUT_OF_MEMORY  no memory; OS error is the system's last error */
KIVSDU_API uint32_t KivSdMemAlloc(KivSdContext* ctx, uint64_t reserved, uint32_t sizeBytes,
                                  void** out, const char* file, uint32_t line);
KIVSDU_API uint32_t KivSdMemAllocUsingPolicy(KivSdContext* ctx, uint64_t reserved,
                                             uint32_t sizeBytes, void** out, uint8_t policy,
                                             const char* file, uint32_t line);

/* Frees a block of KivSdMemAlloc and its kin. What the memory manager says to it is ignored.
 *
 * 0, or KIV_ST_ARGUMENT  block is null */
KIVSDU_API uint32_t KivSdMemFree(KivSdContext* ctx, void* block, const char* file, uint32_t line);

/* Resizes a block, keeping its content up to the smaller size.
 *
 *   newSizeBytes  at least 1
 *   oldBlock      null asks for a new block, as KivSdMemAlloc does
 *   out           receives the block, which may have moved; left alone on failure, when the old
 *                 block is still whole; must not be null
 *
 * 0, or KIV_ST_ARGUMENT       newSizeBytes is 0 or out is null
 *       KIV_ST_OUT_OF_MEMORY  no memory; OS error is the system's last error */
KIVSDU_API uint32_t KivSdMemRealloc(KivSdContext* ctx, uint32_t newSizeBytes, void* oldBlock,
                                    void** out, const char* file, uint32_t line);

/* Copies lengthBytes bytes; the areas may overlap. Does nothing when a pointer is null or the
 * length is 0.
 *
 * Always 0; the context is neither read nor written. */
KIVSDU_API uint32_t KivSdMemCopy(KivSdContext* ctx, void* destination, const void* source,
                                 uint32_t lengthBytes);

/* Fills with zero bytes; a length of 0 is a success.
 *
 * 0, or KIV_ST_ARGUMENT  block is null */
KIVSDU_API uint32_t KivSdMemClear(KivSdContext* ctx, void* block, uint32_t lengthBytes);

/* Frees a block that came from the C runtime's malloc and not from the memory manager.
 *
 * 0, or KIV_ST_ARGUMENT  block is null */
KIVSDU_API uint32_t KivSdExtAllocMemFree(KivSdContext* ctx, void* block);

/* Tells that pages can be locked in memory.
 *
 *   reserved   ignored
 *   available  receives 1; must not be null, which is not checked
 *
 * Always 0. */
KIVSDU_API uint32_t KivSdIsMemPageLocking(KivSdContext* ctx, uint64_t reserved, uint8_t* available);

/* Commits read-write pages and locks them in memory.
 *
 *   out  receives the pages; must not be null. Go by the status and never by this pointer: when
 *        the pages could not be locked they are released and it still holds their address
 *
 * 0, or KIV_ST_ARGUMENT           out is null
 *       KIV_ST_PAGE_COMMIT        not committed (a byte size of 0 included)
 *       KIV_ST_WORKING_SET_QUOTA  not locked: the working-set quota is exhausted, OS error 1453
 *       KIV_ST_PAGE_LOCK          not locked for any other reason */
KIVSDU_API uint32_t KivSdPhysMemAlloc(KivSdContext* ctx, uint32_t pageCount, void** out);

/* Releases pages of KivSdPhysMemAlloc.
 *
 * 0, or KIV_ST_ARGUMENT      block is null
 *       KIV_ST_PAGE_RELEASE  not released */
KIVSDU_API uint32_t KivSdPhysMemFree(KivSdContext* ctx, void* block);

/* Moves locked pages to a larger place.
 *
 *   oldPageCount  pages that are copied, all of them, also into a smaller place: do not shrink
 *   block         in and out; must not be null. On failure it holds the old block, still whole
 *
 * 0, or a status of KivSdPhysMemAlloc or KivSdPhysMemFree. When the old block cannot be released
 * the new one stays committed and is lost to the caller. */
KIVSDU_API uint32_t KivSdPhysMemRealloc(KivSdContext* ctx, uint32_t oldPageCount,
                                        uint32_t newPageCount, void** block);

/* Locks pages in memory, and unlocks them.
 *
 *   pageCount  at least 1
 *   address    of the first page; must not be null
 *
 * 0, or KIV_ST_ARGUMENT           address is null or pageCount is 0
 *       KIV_ST_WORKING_SET_QUOTA  (lock) the working-set quota is exhausted, OS error 1453
 *       KIV_ST_PAGE_LOCK          (lock) not locked for any other reason
 *       KIV_ST_PAGE_UNLOCK        (unlock) not unlocked */
KIVSDU_API uint32_t KivSdMemLock(KivSdContext* ctx, uint32_t pageCount, void* address);
KIVSDU_API uint32_t KivSdMemUnlock(KivSdContext* ctx, uint32_t pageCount, void* address);

/* Commits read-write pages, aligned to the machine's allocation unit and not locked.
 *
 *   out  receives the pages, or null on failure; must not be null
 *
 * 0, or KIV_ST_ARGUMENT        out is null
 *       KIV_ST_ALIGNED_COMMIT  not committed (a byte size of 0 included) */
KIVSDU_API uint32_t KivSdAlignedMemAlloc(KivSdContext* ctx, uint32_t pageCount, void** out);

/* Releases pages of KivSdAlignedMemAlloc.
 *
 * 0, or KIV_ST_ARGUMENT         block is null
 *       KIV_ST_ALIGNED_RELEASE  not released */
KIVSDU_API uint32_t KivSdAlignedMemFree(KivSdContext* ctx, void* block);

/* Moves aligned pages to a larger place.
 *
 *   oldPageCount  pages that are copied, all of them, also into a smaller place: do not shrink
 *   block         in and out; must not be null, which is not checked. On failure it holds the
 *                 old block, still whole, and the new one is released
 *
 * 0, or KIV_ST_ALIGNED_COMMIT   the new pages could not be committed
 *       KIV_ST_ARGUMENT         the old block is null
 *       KIV_ST_ALIGNED_RELEASE  the old block could not be released */
KIVSDU_API uint32_t KivSdAlignedMemRealloc(KivSdContext* ctx, uint32_t oldPageCount,
                                           uint32_t newPageCount, void** block);

/* ---- Switches of the memory manager: process-wide, not locked, set at start-up ---- */

/* The memory-manager switch: whether the manager's blocks of plain mode carry its policy headers. 0
 * when the library is loaded; any other value turns it on.
 *
 * Turn it on before the host allocates. A block from before can still be freed afterwards by a
 * thread without a cache (threadcache.h), but not be resized; a block with a header is neither
 * freed nor resized once the switch is off again, and never given to the C runtime's free. */
KIVSDU_API void KivSdSetMemoryManager(uint8_t flag);

/* Stores the mapped-allocation setting, which nothing reads. */
KIVSDU_API void KivSdSetMmapAllocCfg(uint8_t setting);

/* Turns freeing off for good, if the memory-manager switch is exactly 1: adFree then frees
 * nothing, which suits a process about to end.
 *
 * The no-free switch as it stands afterwards, 0 or 1. */
KIVSDU_API uint8_t KivSdSetMemDeallocOption(void);

#endif
