/* Named blocks of memory that several processes share.
 *
 * Memory and paging space back a block. The block exists as long as a process has it open. A
 * context may always be null. Any thread. */
#ifndef KIVSDU_SHAREDMEM_H
#define KIVSDU_SHAREDMEM_H

#include "api.h"
#include "context.h"

/* Open flags: the access of the caller's view, and whether to create the block. KIV_SHAREDMEM_WRITE
 * grants a writable view; adding KIV_SHAREDMEM_READ to it changes nothing. The value 4 is
 * equivalent to KIV_SHAREDMEM_WRITE. */
#define KIV_SHAREDMEM_READ 0x1u
#define KIV_SHAREDMEM_WRITE 0x2u
#define KIV_SHAREDMEM_CREATE 0x8u
#define KIV_SHAREDMEM_EXCLUSIVE 0x10u

/* Protection flags: the page protection of a block that is created. The value 4 is equivalent to
 * KIV_SHAREDMEM_PAGES_READ_ONLY. If both flags are set, KIV_SHAREDMEM_PAGES_READ_ONLY wins. */
#define KIV_SHAREDMEM_PAGES_READ_WRITE 0x1u
#define KIV_SHAREDMEM_PAGES_READ_ONLY 0x2u

/* These bits add system values to either word, whatever its lower bits are. ADD_4 adds 4 (read
 * access; read-write pages); otherwise ADD_2 adds 2 (write access; read-only pages). COMMIT adds
 * committed pages; otherwise RESERVE adds reserved pages. */
#define KIV_SHAREDMEM_ADD_4 0x40000000u
#define KIV_SHAREDMEM_ADD_2 0x80000000u
#define KIV_SHAREDMEM_COMMIT 0x20000000u
#define KIV_SHAREDMEM_RESERVE 0x10000000u

/* The mapping id on this platform, which uses none. */
#define KIV_SHAREDMEM_NO_ID 0xFFFFFFFFu

/* Creates or opens a block and maps all of it. In failover mode it calls the lease guard
 * (settings.h) before it checks its arguments.
 *
 * With KIV_SHAREDMEM_CREATE the block is created. If a block of this name exists, it is used, with
 * its own size and protection. Without KIV_SHAREDMEM_CREATE an existing block is opened, and on
 * Windows child processes inherit the handle.
 *
 * KIV_SHAREDMEM_EXCLUSIVE fails only if the system refuses to create a block because the name
 * exists, OS error 183. Windows and Linux return the existing block instead of refusing. That
 * counts as created: the status is 0.
 *
 *   name             must not be null
 *   sizeBytes        at least 1 to create a block; 0 maps all of an opened block
 *   openFlags        KIV_SHAREDMEM_CREATE | KIV_SHAREDMEM_WRITE for a writable view, creating the
 *                    block if needed
 *   protectionFlags  KIV_SHAREDMEM_PAGES_READ_WRITE for writable pages
 *   mapping          receives the handle, null on failure; must not be null
 *   mappingId        receives KIV_SHAREDMEM_NO_ID; must not be null
 *   view             receives the address, null on failure; must not be null
 *
 * 0, or KIV_ST_ARGUMENT          a pointer is null
 *       KIV_ST_SHARED_MEM_ALLOC  not created, not opened or not mapped
 * OS error: GetLastError.
 *
 * Compatibility: a system call that fails without an OS error counts as a success. Check the view
 * for null. */
KIVSDU_API uint32_t KivSdSharedMemAlloc(KivSdContext* ctx, const char* name, uint32_t sizeBytes,
                                        uint32_t openFlags, uint32_t protectionFlags,
                                        KivHandle* mapping, uint32_t* mappingId, void** view);

/* Unmaps a view and closes a handle. Tries both steps, and does not call the lease guard.
 *
 *   mapping  the handle itself
 *   view     null skips the unmapping
 *
 * 0, or KIV_ST_SHARED_MEM_FREE  a step failed; the OS error is that of the last step that failed
 * OS error: GetLastError. */
KIVSDU_API uint32_t KivSdSharedMemFree(KivSdContext* ctx, KivHandle mapping, void* view);

#endif
