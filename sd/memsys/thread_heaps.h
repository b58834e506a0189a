// Thread heaps: a fixed number of slots, each with one locked heap, chosen by hashing the caller's
// context; heaps that run dry change places with spare ones.
//
// A slot is being exchanged while its current heap differs from its heap; readers wait then. A heap
// that left its slot between the reading and the locking is told by its index.
#ifndef KIV_MEMSYS_THREAD_HEAPS_H
#define KIV_MEMSYS_THREAD_HEAPS_H

#include <atomic>
#include <cstdint>

#include "memheap/heap.h"
#include "memheap/heap_fast_path.h"
#include "memsys/relaxed.h"
#include "memsys/settings.h"

namespace kiv {

// Slots in use: positive in thread-heap mode, 0 in plain mode, -1 once it was terminated.
extern Relaxed<int32_t> threadHeapCount;

inline bool InThreadHeapMode() { return threadHeapCount > 0; }

// Makes the heaps of `slotCount` slots and the spare ones, as the settings say. False when memory
// fails; what was made until then stays.
bool MakeThreadHeaps(int32_t slotCount);

// A payload of at least sizeBytes bytes: from a heap, or a large block when the request is above
// the largest that heaps serve, or no heap has room. Null without memory. `seed` chooses the slot.
void* ThreadHeapAllocate(uint64_t seed, uint64_t sizeBytes);

// Null is ignored. Any thread, except for the blocks of short heaps. Gives KIV_ST_OK: a caller that
// ends with it has nothing left to do.
uint32_t ThreadHeapFree(void* payload);

// Whether the block is one of a short heap and is parked there now: ThreadHeapFree of most of them,
// without a call. Not for null.
inline bool TryFreeShort(void* payload) {
  if (IsLarge(payload) || memorySettings.blockStatistics) return false;
  Block* block = BlockOf(payload);
  return IsShort(*block->heap) && TryFree(block->heap, block);
}

// Null when it fails, and the block is still whole; a null block asks for a new one. A large block
// leaves its owner's ring for good, unless it fails.
void* ThreadHeapReallocate(uint64_t seed, void* payload, uint64_t sizeBytes);

int32_t InitialHeapBudget();

// What the arenas of thread heaps take.
uint64_t BytesInThreadHeaps();

}  // namespace kiv

#endif
