// A heap: one arena of fixed size, carved into blocks.
//
// Exact-size quick lists for small payloads lie in front of 32 bins of free blocks ordered by
// size: segregated fits with deferred coalescing. Blocks carry their own size and that of the
// block before them (boundary tags; Knuth, The Art of Computer Programming, vol. 1, 2.5), so that
// freeing merges neighbours in constant time. Where a block is placed depends on the requests
// alone: the same requests give the same offsets.
//
// Nothing here takes a lock. A thread heap is used under its own spinlock, a short heap by its one
// owner. Only what the comments below call probes may be read without.
#ifndef KIV_MEMHEAP_HEAP_H
#define KIV_MEMHEAP_HEAP_H

#include <atomic>
#include <cstddef>
#include <cstdint>

#include "kivsdu/spinlock.h"
#include "memheap/block.h"

namespace kiv {

constexpr int kQuickLists = 20;
constexpr int kBins = 32;
constexpr uint32_t kLockedHeapIdentifier = 6005;
constexpr uint32_t kSpareHeapIndex = 4095;
constexpr uint32_t kShortHeapIndex = 0x7FFFFFFF;

// Lies at the start of its arena; the first block follows.
struct Heap {
  KivSdSpinlock* lock;               // of a thread heap; unset in a short heap
  uint32_t lockIdentifier;           // kLockedHeapIdentifier in a thread heap
  Block* quick[kQuickLists];         // parked blocks by payload / 8 - 1, last in first out
  Block* bins[kBins];                // where the next search starts; stale while the bin is empty
  char* arenaEnd;                    // just past the last block
  std::atomic<uint32_t> parked;      // blocks on the quick lists. A probe
  std::atomic<uint8_t> skip[kBins];  // 0: the bin has a block; else how far the next lies. A probe
  Heap* ringNext;                    // of the ring that the heap is kept in
  Heap* ringPrev;
  std::atomic<uint32_t> index;  // slot it serves, kSpareHeapIndex or kShortHeapIndex
};
// Byte 24 of a heap is a quick list that is never filled, and so 0; byte 24 of a large block is
// its owner word, which never is: this is how what is given back to the system is recognised.
static_assert(offsetof(Heap, lock) == 0, "heap layout");
static_assert(offsetof(Heap, lockIdentifier) == 8, "heap layout");
static_assert(offsetof(Heap, quick) == 16, "heap layout");
static_assert(offsetof(Heap, bins) == 176, "heap layout");
static_assert(offsetof(Heap, arenaEnd) == 432, "heap layout");
static_assert(offsetof(Heap, parked) == 440, "heap layout");
static_assert(offsetof(Heap, skip) == 444, "heap layout");
static_assert(offsetof(Heap, ringNext) == 480, "heap layout");
static_assert(offsetof(Heap, ringPrev) == 488, "heap layout");
static_assert(offsetof(Heap, index) == 496, "heap layout");
static_assert(sizeof(Heap) == 504, "heap layout");

// Makes one free block of an arena of arenaBytes bytes that starts at `heap`, 8-byte aligned. A
// size that is no multiple of 8 loses its last bytes. `lock` is the heap's own, or null for a
// short heap. The index and the ring are the caller's to set.
void InitializeHeap(Heap* heap, uint32_t arenaBytes, KivSdSpinlock* lock);

// A block of at least sizeBytes bytes, or null when no free block is large enough even after the
// parked ones were merged. What needs no call of it is TryAllocate, in heap_fast_path.h.
void* AllocateFromHeap(Heap* heap, uint32_t sizeBytes);

// Small blocks are parked and keep their neighbours apart; others merge with free neighbours.
void FreeToHeap(Heap* heap, void* payload);

// The block with its content, in place if it is large enough; null when it would have to move and
// there is no room: it is then still whole.
void* ReallocateInHeap(Heap* heap, void* payload, uint32_t sizeBytes);

// Merges all parked blocks with their free neighbours.
void ConsolidateHeap(Heap* heap);

// Payload of a request: at least 24 bytes, and a multiple of 8. Requests stay far below 2^32.
constexpr uint32_t PayloadBytes(uint32_t sizeBytes) {
  return sizeBytes < kMinPayloadBytes ? kMinPayloadBytes : (sizeBytes + 7) & ~7U;
}

// Bins are ordered: each block of a higher one is at least as large as every size of a lower.
constexpr uint32_t BinOf(uint32_t sizeBytes) {
  if (sizeBytes <= 2048) return sizeBytes / 128;
  if (sizeBytes <= 32767) return sizeBytes / 2048 + 15;
  return kBins - 1;
}

// A short heap has no lock: its owner, who alone may use it, is the caller.
inline bool IsShort(const Heap& heap) {
  return heap.index.load(std::memory_order_relaxed) == kShortHeapIndex;
}

// The next bin above `bin` that has a block, or kBins. A probe.
inline uint32_t NextFilledBin(const Heap& heap, uint32_t bin) {
  if (bin + 1 >= kBins) return kBins;
  const uint32_t next = bin + 1 + heap.skip[bin + 1].load(std::memory_order_relaxed);
  return next < kBins ? next : kBins;
}

// Whether the heap may have a block for a size of this bin. Without its lock the answer may be out
// of date.
inline bool MayServe(const Heap& heap, uint32_t bin) {
  return heap.parked.load(std::memory_order_relaxed) != 0 ||
         heap.skip[bin].load(std::memory_order_relaxed) == 0 || NextFilledBin(heap, bin) != kBins;
}

// ---- Quick lists ----

constexpr uint32_t kLargestParkedBytes = 8 * kQuickLists;

constexpr size_t QuickListOf(size_t payloadBytes) { return payloadBytes / 8 - 1; }

// What only the owner of the heap writes, and probes read.
inline void AddToParked(Heap* heap, uint32_t addend) {
  constexpr std::memory_order kRelaxed = std::memory_order_relaxed;
  heap->parked.store(heap->parked.load(kRelaxed) + addend, kRelaxed);
}

inline Block* PopParked(Heap* heap, size_t list) {
  Block* block = heap->quick[list];
  heap->quick[list] = block->next;
  block->next = nullptr;
  AddToParked(heap, static_cast<uint32_t>(-1));
  return block;
}

inline void Park(Heap* heap, size_t list, Block* block) {
  block->next = heap->quick[list];
  heap->quick[list] = block;
  AddToParked(heap, 1);
}

}  // namespace kiv

#endif
