// What an owner of short heaps has, and its allocations in full: apart from the way of most of
// them, which calls nothing and so has nothing to save.
#ifndef KIV_MEMSYS_SHORT_OWNER_H
#define KIV_MEMSYS_SHORT_OWNER_H

#include <cstdint>

#include "kivsdu/shortheap.h"
#include "memheap/block.h"
#include "memheap/heap.h"
#include "memsys/settings.h"

namespace kiv {

inline Heap* CurrentHeap(const AdShortHeapOwner* owner) { return static_cast<Heap*>(owner->heap); }

// The first of the owner's large blocks; null when it has none.
inline LargeBlock* FirstLarge(const AdShortHeapOwner* owner) {
  return static_cast<LargeBlock*>(owner->largeBlocks);
}

// Outside thread-heap mode the block is the runtime's, which has no links.
void AdoptLarge(AdShortHeapOwner* owner, void* payload);

inline bool IsAboveHeaps(int32_t sizeBytes) {
  return static_cast<uint32_t>(sizeBytes) > memorySettings.largestBlockBytes;
}

// All of adMemShortHeapMalloc.
uint32_t AllocateOwned(AdShortHeapOwner* owner, int32_t sizeBytes, void** block);

}  // namespace kiv

#endif
