/* Memory stacks: scratch memory that is released in bulk.
 *
 * A stack hands out pieces of larger blocks by advancing an offset. It releases all pieces from a
 * given one on, or all pieces:
 *
 *   top block      [ header | piece | piece | piece | free ... ]
 *      below it    [ header | piece | piece | unused tail       ]
 *   free list      largest block first; only its head is reused
 *
 * Every operation writes {status, 0} into its context; the OS error of a failed allocation is not
 * reported. A context may always be null. A stack has no lock: one thread at a time uses it.
 *
 * Example: examples/memory.c. */
#ifndef KIVSDU_MEMSTACK_H
#define KIVSDU_MEMSTACK_H

#include "api.h"
#include "context.h"

typedef struct KivSdMemStack KivSdMemStack;

/* Creates a stack with one free block.
 *
 *   out               receives the stack; must not be null
 *   alignment         of every piece within its block, in bytes; a power of two. The block itself
 *                     has the alignment of the memory manager (manager.h)
 *   initialSizeBytes  size of the first block and minimum size of the next ones; rounded up so that
 *                     a block and 128 bytes for the manager fill whole pages
 *
 * 0, or KIV_ST_ARGUMENT       out is null, or the alignment is not a power of two. *out is then
 *                             unchanged. Or the size exceeds the largest allocation
 *                             (KivSdMaxAllocGet); *out then holds an incomplete stack
 *       KIV_ST_OUT_OF_MEMORY  no memory, or the rounded size exceeds 32 bits. *out holds an
 *                             incomplete stack, or null
 *
 * The caller must delete an incomplete stack. */
KIVSDU_API uint32_t KivSdMemStackCreate(KivSdContext* ctx, KivSdMemStack** out, uint32_t alignment,
                                        uint32_t initialSizeBytes);

/* Hands out a piece.
 *
 *   stack      must not be null
 *   sizeBytes  0 returns the address of the next piece that fits the block. In a full block that is
 *              the block's end, which KivSdMemStackPopAndFree rejects
 *   out        receives the piece; unchanged on failure; must not be null
 *
 * 0, or KIV_ST_ARGUMENT       stack or out is null, or the size exceeds the largest allocation less
 *                             the block's header
 *       KIV_ST_OUT_OF_MEMORY  no memory, or the new block's size exceeds 32 bits; the stack is
 *                             unchanged */
KIVSDU_API uint32_t KivSdMemStackAllocAndPush(KivSdContext* ctx, KivSdMemStack* stack,
                                              uint32_t sizeBytes, void** out);

/* Releases every piece pushed at or after an address. The next piece starts at that address, if it
 * fits the block. Frees the blocks above; the block directly above is kept for reuse if it has the
 * default size and the free list is empty.
 *
 *   stack    must not be null
 *   address  of a piece. Danger: any address in a used block after its header is accepted, aligned
 *            or not
 *
 * 0, or KIV_ST_ARGUMENT  stack is null or empty, or no used block holds the address */
KIVSDU_API uint32_t KivSdMemStackPopAndFree(KivSdContext* ctx, KivSdMemStack* stack,
                                            const void* address);

/* Releases every piece. The blocks go to the free list.
 *
 * Compatibility: if no block is in use, the context is not written.
 *
 *   stack  must not be null
 *
 * 0, or KIV_ST_ARGUMENT  stack is null */
KIVSDU_API uint32_t KivSdMemStackReset(KivSdContext* ctx, KivSdMemStack* stack);

/* Frees the stack and all its blocks.
 *
 *   stack  must not be null; invalid afterwards
 *
 * 0, or KIV_ST_ARGUMENT  stack is null */
KIVSDU_API uint32_t KivSdMemStackDelete(KivSdContext* ctx, KivSdMemStack* stack);

#endif
