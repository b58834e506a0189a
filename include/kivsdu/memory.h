/* The memory front: blocks, copies, and whole pages.
 *
 * Any thread may call. A context may always be null. Page counts are in units of KIV_PAGE_UNIT
 * (8192 bytes), not of the machine's page size. A count of 524288 or more wraps, because its byte
 * size is taken modulo 2^32.
 *
 * Example: examples/hello.c. */
#ifndef KIVSDU_MEMORY_H
#define KIVSDU_MEMORY_H

#include "api.h"
#include "context.h"

/* Allocates a block from the memory manager, aligned to 8 bytes at least (manager.h).
 *
 *   reserved   ignored
 *   sizeBytes  at least 1
 *   out        receives the block, or null when there is no memory; unchanged if sizeBytes is 0;
 *              must not be null
 *   policy     placement policy, AD_POLICY_MANDATORY or AD_POLICY_FULL (manager.h). KivSdMemAlloc
 *              uses AD_POLICY_FULL
 *   file,line  the caller's source position; not stored
 *
 * 0, or KIV_ST_ARGUMENT       sizeBytes is 0 or out is null; the allocator is not called
 *       KIV_ST_OUT_OF_MEMORY  no memory, or the limit would be exceeded (memusage.h)
 * OS error: GetLastError, whichever call set it. */
KIVSDU_API uint32_t KivSdMemAlloc(KivSdContext* ctx, uint64_t reserved, uint32_t sizeBytes,
                                  void** out, const char* file, uint32_t line);
KIVSDU_API uint32_t KivSdMemAllocUsingPolicy(KivSdContext* ctx, uint64_t reserved,
                                             uint32_t sizeBytes, void** out, uint8_t policy,
                                             const char* file, uint32_t line);

/* Frees a block of KivSdMemAlloc, KivSdMemAllocUsingPolicy or KivSdMemRealloc. Ignores the memory
 * manager's status. Frees nothing while the no-free switch is on.
 *
 * 0, or KIV_ST_ARGUMENT  block is null */
KIVSDU_API uint32_t KivSdMemFree(KivSdContext* ctx, void* block, const char* file, uint32_t line);

/* Resizes a block and keeps its content up to the smaller size.
 *
 *   newSizeBytes  at least 1
 *   oldBlock      null allocates a new block, as KivSdMemAlloc does
 *   out           receives the block, which may have moved; must not be null. On failure the old
 *                 block is unchanged, and so is *out if oldBlock is not null
 *   file,line     the caller's source position; not stored
 *
 * 0, or KIV_ST_ARGUMENT       newSizeBytes is 0 or out is null
 *       KIV_ST_OUT_OF_MEMORY  no memory, or the limit would be exceeded
 * OS error: GetLastError, whichever call set it. */
KIVSDU_API uint32_t KivSdMemRealloc(KivSdContext* ctx, uint32_t newSizeBytes, void* oldBlock,
                                    void** out, const char* file, uint32_t line);

/* Copies lengthBytes bytes. The areas may overlap. Does nothing if a pointer is null or the length
 * is 0. The context is neither read nor written.
 *
 * Always returns 0. */
KIVSDU_API uint32_t KivSdMemCopy(KivSdContext* ctx, void* destination, const void* source,
                                 uint32_t lengthBytes);

/* Fills lengthBytes bytes with zeros. A length of 0 succeeds and writes nothing.
 *
 * 0, or KIV_ST_ARGUMENT  block is null */
KIVSDU_API uint32_t KivSdMemClear(KivSdContext* ctx, void* block, uint32_t lengthBytes);

/* Frees a block of the C runtime's malloc, not of the memory manager.
 *
 * 0, or KIV_ST_ARGUMENT  block is null */
KIVSDU_API uint32_t KivSdExtAllocMemFree(KivSdContext* ctx, void* block);

/* Returns whether pages can be locked in memory, which is always so.
 *
 *   reserved   ignored
 *   available  receives 1; must not be null; not checked
 *
 * Always returns 0. */
KIVSDU_API uint32_t KivSdIsMemPageLocking(KivSdContext* ctx, uint64_t reserved, uint8_t* available);

/* Commits read-write pages and locks them in memory. Like those of KivSdAlignedMemAlloc they are
 * outside the memory limit and the totals of memusage.h.
 *
 *   out  receives the pages, or null if they could not be committed; must not be null.
 *        Compatibility: if the pages could not be locked, they are released and *out still holds
 *        their address. Check the status, not this pointer
 *
 * 0, or KIV_ST_ARGUMENT           out is null
 *       KIV_ST_PAGE_COMMIT        not committed (a byte size of 0 included)
 *       KIV_ST_WORKING_SET_QUOTA  not locked: the working-set quota is exhausted, OS error 1453
 *       KIV_ST_PAGE_LOCK          not locked for any other reason
 * OS error: GetLastError. */
KIVSDU_API uint32_t KivSdPhysMemAlloc(KivSdContext* ctx, uint32_t pageCount, void** out);

/* Releases pages of KivSdPhysMemAlloc.
 *
 * 0, or KIV_ST_ARGUMENT      block is null
 *       KIV_ST_PAGE_RELEASE  not released
 * OS error: GetLastError. */
KIVSDU_API uint32_t KivSdPhysMemFree(KivSdContext* ctx, void* block);

/* Moves locked pages to a larger block: allocates it, copies the old pages and releases them.
 *
 *   oldPageCount  pages to copy
 *   newPageCount  pages of the new block. Danger: with fewer pages than oldPageCount, the copy
 *                 writes past the new block
 *   block         in: the old block; out: the new block. Must not be null. On failure it still
 *                 holds the old block, unchanged
 *
 * 0, or KIV_ST_ARGUMENT           block or the old block is null
 *       KIV_ST_PAGE_COMMIT        the new pages were not committed
 *       KIV_ST_WORKING_SET_QUOTA  the new pages were not locked: quota exhausted, OS error 1453
 *       KIV_ST_PAGE_LOCK          the new pages were not locked for any other reason
 *       KIV_ST_PAGE_RELEASE       the old pages were not released
 * OS error: GetLastError.
 *
 * Compatibility: if the old block is null or cannot be released, the new pages stay locked, and
 * their address is lost. */
KIVSDU_API uint32_t KivSdPhysMemRealloc(KivSdContext* ctx, uint32_t oldPageCount,
                                        uint32_t newPageCount, void** block);

/* Lock pages in memory, and unlock them.
 *
 *   pageCount  at least 1
 *   address    of the first page; must not be null
 *
 * 0, or KIV_ST_ARGUMENT           address is null or pageCount is 0
 *       KIV_ST_WORKING_SET_QUOTA  (lock) the working-set quota is exhausted, OS error 1453
 *       KIV_ST_PAGE_LOCK          (lock) not locked for any other reason
 *       KIV_ST_PAGE_UNLOCK        (unlock) not unlocked
 * OS error: GetLastError. */
KIVSDU_API uint32_t KivSdMemLock(KivSdContext* ctx, uint32_t pageCount, void* address);
KIVSDU_API uint32_t KivSdMemUnlock(KivSdContext* ctx, uint32_t pageCount, void* address);

/* Commits read-write pages, aligned to the machine's allocation unit and not locked.
 *
 * The pages come from the system: the memory manager neither counts them nor limits them. A host
 * that wants them in the totals and under the limit registers them by adMemAlignedIncCounter
 * (memusage.h).
 *
 *   out  receives the pages, or null on failure; must not be null
 *
 * 0, or KIV_ST_ARGUMENT        out is null
 *       KIV_ST_ALIGNED_COMMIT  not committed (a byte size of 0 included)
 * OS error: GetLastError. */
KIVSDU_API uint32_t KivSdAlignedMemAlloc(KivSdContext* ctx, uint32_t pageCount, void** out);

/* Releases pages of KivSdAlignedMemAlloc.
 *
 * 0, or KIV_ST_ARGUMENT         block is null
 *       KIV_ST_ALIGNED_RELEASE  not released
 * OS error: GetLastError. */
KIVSDU_API uint32_t KivSdAlignedMemFree(KivSdContext* ctx, void* block);

/* Moves aligned pages to a larger block: commits it, copies the old pages and releases them.
 *
 *   oldPageCount  pages to copy
 *   newPageCount  pages of the new block. Danger: with fewer pages than oldPageCount, the copy
 *                 writes past the new block
 *   block         in: the old block; out: the new block. Must not be null; not checked. On failure
 *                 it still holds the old block, unchanged, and the new block is released
 *
 * 0, or KIV_ST_ALIGNED_COMMIT   the new pages were not committed
 *       KIV_ST_ARGUMENT         the old block is null
 *       KIV_ST_ALIGNED_RELEASE  the old pages were not released
 * OS error: GetLastError. */
KIVSDU_API uint32_t KivSdAlignedMemRealloc(KivSdContext* ctx, uint32_t oldPageCount,
                                           uint32_t newPageCount, void** block);

/* ---- Switches of the memory manager: process-wide, not locked, set at start-up ---- */

/* Sets the memory-manager switch. While it is on, blocks of plain mode have a policy header
 * (manager.h).
 *
 *   flag  0 turns it off, any other value turns it on; off when the library is loaded
 *
 * Turn it on before the host allocates. Blocks without a header must not be resized afterwards, and
 * only threads without a cache (threadcache.h) may free them. Blocks with a header must not be
 * freed or resized after the switch was turned off, and never be passed to the C runtime's free. */
KIVSDU_API void KivSdSetMemoryManager(uint8_t flag);

/* Stores the mapped-allocation setting, which nothing reads. */
KIVSDU_API void KivSdSetMmapAllocCfg(uint8_t setting);

/* Turns the no-free switch on, if the memory-manager switch is exactly 1. It cannot be turned off.
 * While it is on, adFree frees nothing, which suits a process that is about to end.
 *
 * Returns the no-free switch: 1 on, 0 off. */
KIVSDU_API uint8_t KivSdSetMemDeallocOption(void);

#endif
