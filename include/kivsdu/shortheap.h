/* Short heaps: private heaps of one unit of work, their owner, released together when it ends.
 *
 * One thread at a time uses an owner, so that its heaps need no lock. Only that thread may call the
 * operations here for the owner, and adFree for the owner's blocks. When the owner ends, its heaps
 * and its large blocks are released, even if their blocks were not freed. A pool keeps heaps of
 * ended owners for new ones.
 *
 * Short heaps exist while the memory manager runs thread heaps (adMemThreadHeapInit), unless the
 * configuration has "shortmemoryoff". A host that must run without them calls adMemShortCheckStatus
 * and allocates with adMalloc instead. Owners must end before adMemThreadHeapTerm: in plain mode
 * adMemShortHeapTerm does nothing.
 *
 * The owner must never be null.
 *
 * Example: examples/memory.c. */
#ifndef KIVSDU_SHORTHEAP_H
#define KIVSDU_SHORTHEAP_H

#include "api.h"

/* An owner. Part of the caller's own record; zeroed before the first use; must not move while in
 * use. */
typedef struct AdShortHeapOwner {
  void* heap;           /* current heap, tried first; null while the owner has none */
  void* largeBlocks;    /* ring of the owner's large blocks */
  uint8_t freeDisabled; /* for the host; the memory manager does not read it */
} AdShortHeapOwner;

/* Gives the owner its first heap, from the pool or new. Does nothing if the owner has a heap or
 * there are no short heaps. Without memory the owner has no heap afterwards, and a message is sent
 * (manager.h). */
KIVSDU_API void adMemShortHeapInit(AdShortHeapOwner* owner);

/* Allocates a block. A request above "maxblock" becomes a large block in the owner's ring. Any
 * other request comes from the owner's heaps; if they are full, the owner gets another heap.
 *
 *   sizeBytes  at least 1
 *   block      receives the block, or null when there is no memory; unchanged with
 *              KIV_ST_ARGUMENT; must not be null
 *   file,line  the caller's source position; not stored
 *
 * 0, or KIV_ST_ARGUMENT       sizeBytes is below 1, or up to "maxblock" and the owner has no heap
 *       KIV_ST_OUT_OF_MEMORY  no memory, or the limit would be exceeded; a message is sent */
KIVSDU_API uint32_t adMemShortHeapMalloc(AdShortHeapOwner* owner, int32_t sizeBytes, void** block,
                                         const char* file, uint32_t line);

/* Resizes a block of the owner or of adMalloc; the result belongs to the owner. Keeps the content
 * up to the smaller size. In plain mode it resizes the block as adRealloc does. While the no-free
 * switch is on (memory.h), a block that moves to another heap, or from a large block to a heap,
 * also stays allocated at its old place.
 *
 *   newSizeBytes  at least 1
 *   oldBlock      null allocates a new block, as adMemShortHeapMalloc does
 *   newBlock      receives the block, which may have moved; must not be null. On failure the old
 *                 block is unchanged; newBlock receives null if memory ran out, and is unchanged
 *                 after KIV_ST_ARGUMENT
 *   file,line     the caller's source position; not stored
 *
 * 0, or KIV_ST_ARGUMENT       newSizeBytes is below 1, or the owner needs a heap and has none
 *       KIV_ST_OUT_OF_MEMORY  no memory, or the limit would be exceeded; a message is sent */
KIVSDU_API uint32_t adMemShortHeapRealloc(AdShortHeapOwner* owner, int32_t newSizeBytes,
                                          void* oldBlock, void** newBlock, const char* file,
                                          uint32_t line);

/* Ends the owner: releases all its heaps and large blocks. The owner may be initialised again.
 *
 * Compatibility: while the no-free switch is on (memory.h), it does not return if the owner has
 * large blocks. Do not call it then. */
KIVSDU_API void adMemShortHeapTerm(AdShortHeapOwner* owner);

/* Sets the owner's freeDisabled to 1. */
KIVSDU_API void adMemShortDisableFree(AdShortHeapOwner* owner);

/* Returns 1 if the owner has a heap, else 0. */
KIVSDU_API int32_t adMemShortCheckStatus(const AdShortHeapOwner* owner);

#endif
