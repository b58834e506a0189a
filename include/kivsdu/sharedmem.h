/* Named blocks of memory that several processes share.
 *
 * A block lies in the paging file, not in a file of the caller's, and lives as long as any process
 * has it open. Any thread. A context may always be null. */
#ifndef KIVSDU_SHAREDMEM_H
#define KIVSDU_SHAREDMEM_H

#include "api.h"
#include "context.h"

/* Open flags: what the caller does with its view, and whether the block is made. A writable view
 * is asked for with KIV_SHAREDMEM_WRITE; where that stands, KIV_SHAREDMEM_READ adds nothing. The
 * value 4 means the same as KIV_SHAREDMEM_WRITE. */
#define KIV_SHAREDMEM_READ 0x1u
#define KIV_SHAREDMEM_WRITE 0x2u
#define KIV_SHAREDMEM_CREATE 0x8u
#define KIV_SHAREDMEM_EXCLUSIVE 0x10u

/* Protection flags: what the pages of a block that is made admit. The value 4 means the same as
 * KIV_SHAREDMEM_PAGES_READ_ONLY, which stands before KIV_SHAREDMEM_PAGES_READ_WRITE. */
#define KIV_SHAREDMEM_PAGES_READ_WRITE 0x1u
#define KIV_SHAREDMEM_PAGES_READ_ONLY 0x2u

/* These are added to either word, whatever stands below: bit 30 the system's value 4 (read access;
 * read-write pages), without it bit 31 the value 2 (write access; read-only pages); and bit 29 that
 * pages are committed, without it bit 28 that they are only reserved. */
#define KIV_SHAREDMEM_ADD_4 0x40000000u
#define KIV_SHAREDMEM_ADD_2 0x80000000u
#define KIV_SHAREDMEM_COMMIT 0x20000000u
#define KIV_SHAREDMEM_RESERVE 0x10000000u

/* What the mapping id receives: no id is used on this platform. */
#define KIV_SHAREDMEM_NO_ID 0xFFFFFFFFu

/* Makes or opens a block and maps the whole of it. In failover mode it first calls the lease guard
 * (settings.h), before it looks at its arguments.
 *
 * With KIV_SHAREDMEM_CREATE the block is made, or the one that has the name is used, with its own
 * size and protection. KIV_SHAREDMEM_EXCLUSIVE refuses a name only where the system refuses to make
 * the block for it; a system that hands out the block that is there counts as having made it. A
 * block that was there is no failure then. Without KIV_SHAREDMEM_CREATE the block is opened, and
 * child processes inherit the handle.
 *
 *   name             must not be null
 *   sizeBytes        at least 1 to make a block; 0 maps one that is opened as a whole
 *   openFlags        8 | 2 for a writable view of a block that is made if need be
 *   protectionFlags  1 for read-write pages
 *   mapping          receives the handle, null on failure; must not be null
 *   mappingId        receives KIV_SHAREDMEM_NO_ID; must not be null
 *   view             receives the address, null on failure; must not be null
 *
 * 0, or KIV_ST_ARGUMENT          a pointer is null
 *       KIV_ST_SHARED_MEM_ALLOC  not made, not opened or not mapped
 * A failure for which the system names no error counts as a success with a null view. */
KIVSDU_API uint32_t KivSdSharedMemAlloc(KivSdContext* ctx, const char* name, uint32_t sizeBytes,
                                        uint32_t openFlags, uint32_t protectionFlags,
                                        KivHandle* mapping, uint32_t* mappingId, void** view);

/* Unmaps a view and closes a handle. Both steps are tried; the lease guard is not called.
 *
 *   mapping  the handle itself
 *   view     null unmaps nothing
 *
 * 0, or KIV_ST_SHARED_MEM_FREE  a step failed; OS error is that of the last one that did */
KIVSDU_API uint32_t KivSdSharedMemFree(KivSdContext* ctx, KivHandle mapping, void* view);

#endif
