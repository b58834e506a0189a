// Thread heaps: a fixed number of slots, each with one locked heap. A hash of the caller's context
// chooses the slot. A heap without room is exchanged for a spare one.
//
// A slot is being exchanged while its current heap differs from its heap; readers wait until they
// are equal. After locking, compare the heap's index with the slot: they differ if the heap was
// exchanged meanwhile.
#ifndef KIV_MEMSYS_THREAD_HEAPS_H
#define KIV_MEMSYS_THREAD_HEAPS_H

#include <cstdint>

#include "memheap/heap.h"
#include "memory_modes.h"
#include "memsys/relaxed.h"
#include "memsys/settings.h"

namespace kiv {

inline bool InThreadHeapMode() { return IsInMode(kHeapsMode); }

// Slots in use: positive in thread-heap mode, 0 in plain mode, -1 in plain mode after termination.
extern Relaxed<int32_t> threadHeapCount;

// Enters thread-heap mode if the count is positive, and leaves it otherwise.
void SetThreadHeapCount(int32_t count);

// Makes the heaps of `slotCount` slots and the spare heaps. Returns false when there is no memory;
// the heaps made so far stay allocated.
bool MakeThreadHeaps(int32_t slotCount);

// Returns a payload of at least sizeBytes bytes, from the heap of the slot that `seed` chooses. It
// is a large block if the request is above the largest that heaps serve, or if no heap has room.
// Null when there is no memory.
void* ThreadHeapAllocate(uint64_t seed, uint64_t sizeBytes);

// Like ThreadHeapAllocate, in a slot that was chosen already, for a size that heaps serve.
void* SlotAllocate(uint32_t slot, uint32_t sizeBytes);

// Frees a block; null is ignored. Any thread may call it, but for a block of a short heap only the
// owner's thread. Always returns KIV_ST_OK, so that callers can tail-call it.
uint32_t ThreadHeapFree(void* payload);

// Finishes a free that TryThreadHeapFree (direct_request.h) left with a locked heap. Always returns
// KIV_ST_OK, so that callers can tail-call it.
uint32_t FreeInLockedHeap(Heap* heap, void* payload);

// Resizes a block; a null block allocates a new one. Returns null on failure; the block is then
// unchanged. A large block that was resized belongs to no owner.
void* ThreadHeapReallocate(uint64_t seed, void* payload, uint64_t sizeBytes);

// Thread heaps that may exist in total.
int32_t InitialHeapBudget();

// Bytes in the arenas of all thread heaps.
uint64_t BytesInThreadHeaps();

}  // namespace kiv

#endif
