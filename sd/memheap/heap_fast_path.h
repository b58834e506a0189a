// Boundary tags of a heap, carving, and the inline fast paths of allocating and freeing.
#ifndef KIV_MEMHEAP_HEAP_FAST_PATH_H
#define KIV_MEMHEAP_HEAP_FAST_PATH_H

#include <array>
#include <cstdint>

#include "memheap/bins.h"
#include "memheap/block.h"
#include "memheap/heap.h"

namespace kiv {

inline Block* After(Block* block) {
  return reinterpret_cast<Block*>(reinterpret_cast<char*>(block) + block->sizeBytes);
}

inline Block* Before(Block* block) {
  return reinterpret_cast<Block*>(reinterpret_cast<char*>(block) - block->previousBytes);
}

inline bool IsInside(const Heap& heap, const Block* block) {
  return reinterpret_cast<const char*>(block) < heap.arenaEnd;
}

// Stores the block's size in the boundary tag of the block after it.
inline void UpdateNeighbour(const Heap& heap, Block* block) {
  Block* after = After(block);
  if (IsInside(heap, after)) after->previousBytes = block->sizeBytes;
}

// Cuts sizeBytes bytes off the tail of a free block and returns them as a block. The rest keeps its
// address and its place in its bin, even if its size belongs to a lower bin.
inline Block* CutTail(const Heap& heap, Block* block, uint32_t sizeBytes) {
  const uint32_t restBytes = block->sizeBytes - sizeBytes;
  block->sizeBytes = restBytes;
  Block* cut = After(block);
  cut->sizeBytes = sizeBytes;
  cut->previousBytes = restBytes;
  UpdateNeighbour(heap, cut);
  return cut;
}

// Marks a block as in use and returns its payload.
inline void* HandOut(Heap* heap, Block* block) {
  block->heap = heap;
  block->next = nullptr;
  return PayloadOf(block);
}

// ---- Fast paths ----

// The smallest rest of a block of each bin that is split and stays in its bin.
inline constexpr std::array<uint32_t, kBins> kMinRestOfBin = [] {
  std::array<uint32_t, kBins> least = {kMinFreeBytes};
  for (uint32_t bin = 1; bin < kBins; ++bin) {
    least[bin] = bin <= 16 ? bin * 128 : (bin - 15) * 2048;
  }
  return least;
}();
static_assert([] {
  for (uint32_t bin = 0; bin < kBins; ++bin) {
    if (BinOf(kMinRestOfBin[bin]) != bin) return false;
    if (bin != 0 && BinOf(kMinRestOfBin[bin] - 1) != bin - 1) return false;
  }
  return true;
}());

// Fast path: cuts the tail off the first block in which a search would look, provided that the rest
// stays in its bin. Returns null otherwise.
inline void* TryCarve(Heap* heap, uint32_t neededBytes) {
  const uint32_t bin = BinOf(neededBytes);
  const size_t filled = bin + heap->skip[bin].load(std::memory_order_relaxed);
  if (filled >= kBins) return nullptr;
  Block* block = heap->bins[filled];
  if (block->sizeBytes < neededBytes + kMinRestOfBin[filled] || block->heap != nullptr) {
    return nullptr;
  }
  return HandOut(heap, CutTail(*heap, block, neededBytes));
}

// Fast path of AllocateFromHeap. Null does not mean that the heap has no room.
inline void* TryAllocate(Heap* heap, uint32_t sizeBytes) {
  const uint32_t payloadBytes = PayloadBytes(sizeBytes);
  // List 0 is always empty, so "no list" and "empty list" share one predictable branch.
  const size_t listedBytes = payloadBytes <= kLargestParkedBytes ? payloadBytes : 8;
  if (QuickListOf(heap, listedBytes) != nullptr) return PayloadOf(PopParked(heap, listedBytes));
  return TryCarve(heap, payloadBytes + kBlockHeaderBytes);
}

// Fast path for a block that TryCarve cut: merges it into the block before it, if that one is free
// and stays in its bin, and the block after it is not free. Returns false otherwise, with nothing
// changed.
inline bool TryMergeBack(Heap* heap, Block* block) {
  if (block->previousBytes == 0) return false;
  Block* previous = Before(block);
  Block* after = After(block);
  const bool isLast = !IsInside(*heap, after);
  if (previous->heap != nullptr || (!isLast && after->heap == nullptr)) return false;
  const uint32_t mergedBytes = previous->sizeBytes + block->sizeBytes;
  if (BinOf(mergedBytes) != previous->bin) return false;
  RaiseBound(heap, previous->bin, mergedBytes);
  previous->sizeBytes = mergedBytes;
  if (!isLast) after->previousBytes = mergedBytes;
  return true;
}

// Fast path of FreeToHeap. Returns false, with nothing changed, if only FreeToHeap can free it.
inline bool TryFree(Heap* heap, Block* block) {
  const size_t payloadBytes = block->sizeBytes - kBlockHeaderBytes;
  if (payloadBytes > kLargestParkedBytes) return TryMergeBack(heap, block);
  Park(heap, payloadBytes, block);
  return true;
}

}  // namespace kiv

#endif
