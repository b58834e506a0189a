// The parts of an owner of short heaps, and the full path of its allocations. The full path is in a
// file of its own, so that the fast path in short_heap.cpp saves no registers.
#ifndef KIV_MEMSYS_SHORT_OWNER_H
#define KIV_MEMSYS_SHORT_OWNER_H

#include <cstdint>

#include "kivsdu/shortheap.h"
#include "memheap/block.h"
#include "memheap/heap.h"
#include "memsys/settings.h"

namespace kiv {

inline Heap* CurrentHeap(const AdShortHeapOwner* owner) { return static_cast<Heap*>(owner->heap); }

// Returns the head of the owner's ring of large blocks; null if the owner has none.
inline LargeBlock* FirstLarge(const AdShortHeapOwner* owner) {
  return static_cast<LargeBlock*>(owner->largeBlocks);
}

// Adds a large block to the owner's ring. Does nothing in plain mode, where blocks have no links.
void AdoptLarge(AdShortHeapOwner* owner, void* payload);

inline bool IsAboveHeaps(int32_t sizeBytes) {
  return static_cast<uint32_t>(sizeBytes) > memorySettings.largestBlockBytes;
}

// The full path of adMemShortHeapMalloc, for every size.
uint32_t AllocateOwned(AdShortHeapOwner* owner, int32_t sizeBytes, void** block);

}  // namespace kiv

#endif
