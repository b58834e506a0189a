// A heap: one arena of fixed size, carved into blocks.
//
// Segregated fits with deferred coalescing: small payloads are parked on quick lists of one size
// each, other free blocks lie in 32 bins ordered by size. Blocks store their own size and that of
// the block before them (boundary tags; Knuth, The Art of Computer Programming, vol. 1, 2.5), so
// that a free merges neighbours in constant time. Placement depends on the requests alone: equal
// sequences of requests return equal offsets.
//
// Nothing here takes a lock. The caller holds the spinlock of a thread heap; a short heap is used
// by its owner alone. Only members and functions marked as probes may be read without the lock.
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
  uint32_t unservedBytes;            // every free block is smaller, and every bound of a bin
  Heap* ringNext;                    // ring that the heap belongs to
  Heap* ringPrev;
  std::atomic<uint32_t> index;  // slot it serves, kSpareHeapIndex or kShortHeapIndex
};
// Bytes 24 to 31 tell a heap from a large block when either is released: a heap has a quick list
// there that is never filled, 0; a large block has its owner word, never 0.
static_assert(offsetof(Heap, lock) == 0, "heap layout");
static_assert(offsetof(Heap, lockIdentifier) == 8, "heap layout");
static_assert(offsetof(Heap, quick) == 16, "heap layout");
static_assert(offsetof(Heap, bins) == 176, "heap layout");
static_assert(offsetof(Heap, arenaEnd) == 432, "heap layout");
static_assert(offsetof(Heap, parked) == 440, "heap layout");
static_assert(offsetof(Heap, skip) == 444, "heap layout");
static_assert(offsetof(Heap, unservedBytes) == 476, "heap layout");
static_assert(offsetof(Heap, ringNext) == 480, "heap layout");
static_assert(offsetof(Heap, ringPrev) == 488, "heap layout");
static_assert(offsetof(Heap, index) == 496, "heap layout");
static_assert(sizeof(Heap) == 504, "heap layout");

// Makes a heap with one free block in the arena of arenaBytes bytes that starts at `heap`, aligned
// to 8 bytes. If the size is not a multiple of 8, the last bytes are not used. `lock` is the heap's
// own, or null for a short heap. The caller sets the index and the ring.
void InitializeHeap(Heap* heap, uint32_t arenaBytes, KivSdSpinlock* lock);

// Returns a payload of at least sizeBytes bytes, or null if no free block is large enough even
// after consolidation. Its fast path is TryAllocate, in heap_fast_path.h.
void* AllocateFromHeap(Heap* heap, uint32_t sizeBytes);

// Frees a block. A small one is parked and not merged; any other merges with its free neighbours.
void FreeToHeap(Heap* heap, void* payload);

// Resizes a block: in place if it is large enough, else by moving it within the heap. Returns null
// if the heap has no room; the block is then unchanged.
void* ReallocateInHeap(Heap* heap, void* payload, uint32_t sizeBytes);

// Merges all parked blocks with their free neighbours.
void ConsolidateHeap(Heap* heap);

// Rounds a request up to a payload: at least 24 bytes, a multiple of 8. Requests must be far below
// 2^32.
constexpr uint32_t PayloadBytes(uint32_t sizeBytes) {
  return sizeBytes < kMinPayloadBytes ? kMinPayloadBytes : (sizeBytes + 7) & ~7U;
}

// Bins are ordered: every block of a higher bin is at least as large as every size of a lower bin.
constexpr uint32_t BinOf(uint32_t sizeBytes) {
  if (sizeBytes <= 2048) return sizeBytes / 128;
  if (sizeBytes <= 32767) return sizeBytes / 2048 + 15;
  return kBins - 1;
}

// Whether the heap is a short heap: it has no lock and only its owner's thread may use it.
inline bool IsShort(const Heap& heap) {
  return heap.index.load(std::memory_order_relaxed) == kShortHeapIndex;
}

// Returns the next bin above `bin` that has a block, or kBins. A probe.
inline uint32_t NextFilledBin(const Heap& heap, uint32_t bin) {
  if (bin + 1 >= kBins) return kBins;
  const uint32_t next = bin + 1 + heap.skip[bin + 1].load(std::memory_order_relaxed);
  return next < kBins ? next : kBins;
}

// Whether a search for a block of sizeBytes bytes may change the heap or succeed.
inline bool MayFind(const Heap& heap, uint32_t sizeBytes) {
  return heap.parked.load(std::memory_order_relaxed) != 0 || sizeBytes < heap.unservedBytes;
}

// Whether the heap may have a block for a size of this bin. A probe: without the lock the result
// may be out of date.
inline bool MayServe(const Heap& heap, uint32_t bin) {
  return heap.parked.load(std::memory_order_relaxed) != 0 ||
         heap.skip[bin].load(std::memory_order_relaxed) == 0 || NextFilledBin(heap, bin) != kBins;
}

// ---- Quick lists ----

constexpr uint32_t kLargestParkedBytes = 8 * kQuickLists;

// Returns the list of a payload size, a multiple of 8, as an address: compilers would compute an
// index by a division that the address multiplies again.
inline Block*& QuickListOf(Heap* heap, size_t payloadBytes) {
  static_assert(sizeof(void*) == 8);
  char* lists = reinterpret_cast<char*>(heap->quick);
  return *reinterpret_cast<Block**>(lists + payloadBytes - 8);
}

// Not an atomic addition: only the holder of the heap writes the count. Probes read it.
inline void AddToParked(Heap* heap, uint32_t addend) {
  const uint32_t parked = heap->parked.load(std::memory_order_relaxed);
  heap->parked.store(parked + addend, std::memory_order_relaxed);
}

inline Block* PopParked(Heap* heap, size_t payloadBytes) {
  Block*& list = QuickListOf(heap, payloadBytes);
  Block* block = list;
  list = block->next;
  block->next = nullptr;
  AddToParked(heap, static_cast<uint32_t>(-1));
  return block;
}

inline void Park(Heap* heap, size_t payloadBytes, Block* block) {
  Block*& list = QuickListOf(heap, payloadBytes);
  block->next = list;
  list = block;
  AddToParked(heap, 1);
}

}  // namespace kiv

#endif
