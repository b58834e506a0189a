/* Short heaps: private heaps of one unit of work, dropped in one go when it ends.
 *
 * An owner's heaps need no lock, because one thread at a time uses them: every operation here, and
 * adFree of what an owner was given, is for that thread. When the owner ends, its heaps and its
 * large blocks go back, whether or not their blocks were freed. Heaps of ended owners are kept in a
 * pool for the next ones.
 *
 * Short heaps exist while the memory manager runs thread heaps (adMemThreadHeapInit) and its
 * configuration does not say "shortmemoryoff". A host that must run without them asks
 * adMemShortCheckStatus and allocates with adMalloc instead.
 *
 * Example: examples/memory.c. */
#ifndef KIVSDU_SHORTHEAP_H
#define KIVSDU_SHORTHEAP_H

#include "api.h"

/* Lies in the caller's own record, zeroed before the first use; must not be moved while in use. */
typedef struct AdShortHeapOwner {
  void* heap;           /* tried first; null while the owner has none */
  void* largeBlocks;    /* ring of the owner's large blocks */
  uint8_t freeDisabled; /* for the host; the memory manager does not read it */
} AdShortHeapOwner;

/* Gives the owner a first heap, from the pool or new. Does nothing when it has one, or when there
 * are no short heaps. Without memory the owner stays without a heap and the host is told by a
 * message (manager.h). */
KIVSDU_API void adMemShortHeapInit(AdShortHeapOwner* owner);

/* Allocates. A request above "maxblock" becomes a large block in the owner's ring; any other comes
 * from the owner's heaps, and from a further one when they are full.
 *
 *   sizeBytes  at least 1
 *   block      receives the block, or null when there is no memory; must not be null
 *   file,line  the caller's source position; accepted and not stored
 *
 * 0, or KIV_ST_ARGUMENT       sizeBytes is below 1, or the owner has no heap for the request
 *       KIV_ST_OUT_OF_MEMORY  no memory, or the memory limit */
KIVSDU_API uint32_t adMemShortHeapMalloc(AdShortHeapOwner* owner, int32_t sizeBytes, void** block,
                                         const char* file, uint32_t line);

/* Resizes a block of the owner, or one of adMalloc, which then becomes the owner's unless it can
 * stay in its heap. Content is kept up to the smaller size. Once the no-free switch is on, a block
 * that leaves its heap or stops being a large block stays allocated where it was as well.
 *
 *   newSizeBytes  at least 1
 *   oldBlock      null asks for a new block, as adMemShortHeapMalloc does
 *   newBlock      receives the block, which may have moved; after a failure the old block is still
 *                 whole. Must not be null
 *
 * Statuses as of adMemShortHeapMalloc. */
KIVSDU_API uint32_t adMemShortHeapRealloc(AdShortHeapOwner* owner, int32_t newSizeBytes,
                                          void* oldBlock, void** newBlock, const char* file,
                                          uint32_t line);

/* Ends the owner: gives all its heaps and large blocks back. It may be initialised again. Must not
 * be called once the no-free switch is on and the owner has large blocks: it would not return. */
KIVSDU_API void adMemShortHeapTerm(AdShortHeapOwner* owner);

/* Sets the owner's freeDisabled. */
KIVSDU_API void adMemShortDisableFree(AdShortHeapOwner* owner);

/* 1 while the owner has a heap, else 0. */
KIVSDU_API int32_t adMemShortCheckStatus(const AdShortHeapOwner* owner);

#endif
