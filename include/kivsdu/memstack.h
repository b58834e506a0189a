/* Memory stacks: scratch memory that is given back in bulk.
 *
 * A stack hands out pieces of larger blocks by advancing an offset, and takes them back down to
 * a given piece, or all at once:
 *
 *   top block      [ header | piece | piece | piece | free ... ]
 *      below it    [ header | piece | piece | unused tail       ]
 *   free list      largest block first; only its head is considered for reuse
 *
 * Every operation writes {status, 0} into its context: the OS error of a failed allocation is
 * not kept. A stack is not locked; one thread uses it at a time.
 *
 * Example: examples/memory.c. */
#ifndef KIVSDU_MEMSTACK_H
#define KIVSDU_MEMSTACK_H

#include "api.h"
#include "context.h"

typedef struct KivSdMemStack KivSdMemStack;

/* Makes a stack with one free block.
 *
 *   ctx               may be null
 *   out               receives the stack; must not be null
 *   alignment         of every piece within its block, a power of two, bytes. Blocks themselves
 *                     are aligned as the memory manager aligns them
 *   initialSizeBytes  size of the first block and least size of the next ones; rounded up so
 *                     that a block and 128 bytes of the manager's own fill whole pages
 *
 * 0, or KIV_ST_ARGUMENT       out is null, the alignment is no power of two (0 included), or
 *                             the size exceeds the largest allocation; in this last case out
 *                             holds a stack that must be deleted
 *       KIV_ST_OUT_OF_MEMORY  no memory, or the rounded size does not fit 32 bits. out holds
 *                             an incomplete stack, to be deleted, or null if there is none */
KIVSDU_API uint32_t KivSdMemStackCreate(KivSdContext* ctx, KivSdMemStack** out, uint32_t alignment,
                                        uint32_t initialSizeBytes);

/* Hands out a piece.
 *
 *   ctx        may be null
 *   stack      must not be null
 *   sizeBytes  0 yields the next free place: where the next piece lies, if it fits the block; in
 *              a full block the place is its end, which no pop takes
 *   out        receives the piece; must not be null, left alone on failure
 *
 * 0, or KIV_ST_ARGUMENT       stack or out is null, or the size exceeds the largest allocation
 *       KIV_ST_OUT_OF_MEMORY  no memory, or the block's size does not fit 32 bits; the stack is
 *                             as it was */
KIVSDU_API uint32_t KivSdMemStackAllocAndPush(KivSdContext* ctx, KivSdMemStack* stack,
                                              uint32_t sizeBytes, void** out);

/* Takes back everything pushed at or after an address. The next piece of the same alignment
 * will lie there. Blocks above are freed; the one directly above is kept for reuse when it has
 * the default size and the free list is empty.
 *
 *   ctx      may be null
 *   stack    must not be null
 *   address  in a block in use, behind its header
 *
 * 0, or KIV_ST_ARGUMENT  stack is null or empty, or no block in use holds the address */
KIVSDU_API uint32_t KivSdMemStackPopAndFree(KivSdContext* ctx, KivSdMemStack* stack,
                                            const void* address);

/* Takes back everything; the blocks go to the free list. A stack with nothing pushed is left
 * alone, and so is the context then.
 *
 *   ctx    may be null
 *   stack  must not be null
 *
 * 0, or KIV_ST_ARGUMENT  stack is null */
KIVSDU_API uint32_t KivSdMemStackReset(KivSdContext* ctx, KivSdMemStack* stack);

/* Frees the stack and all its blocks.
 *
 *   ctx    may be null
 *   stack  must not be null; gone afterwards
 *
 * 0, or KIV_ST_ARGUMENT  stack is null */
KIVSDU_API uint32_t KivSdMemStackDelete(KivSdContext* ctx, KivSdMemStack* stack);

#endif
