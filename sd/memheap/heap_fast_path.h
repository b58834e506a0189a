// Neighbours of a block in its arena, and cutting a block from the end of a free one.
#ifndef KIV_MEMHEAP_HEAP_FAST_PATH_H
#define KIV_MEMHEAP_HEAP_FAST_PATH_H

#include <array>
#include <cstdint>

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

// Tells the block after this one how long this one is.
inline void UpdateNeighbour(const Heap& heap, Block* block) {
  Block* after = After(block);
  if (IsInside(heap, after)) after->previousBytes = block->sizeBytes;
}

// The new block. What stays free keeps its address, and its place even where its size is none of
// that bin's any more.
inline Block* CutTail(const Heap& heap, Block* block, uint32_t sizeBytes) {
  const uint32_t restBytes = block->sizeBytes - sizeBytes;
  block->sizeBytes = restBytes;
  Block* cut = After(block);
  cut->sizeBytes = sizeBytes;
  cut->previousBytes = restBytes;
  UpdateNeighbour(heap, cut);
  return cut;
}

// The payload of a block that is nobody's any more but its owner's.
inline void* HandOut(Heap* heap, Block* block) {
  block->heap = heap;
  block->next = nullptr;
  return PayloadOf(block);
}

// ---- The shortest ways ----

// The least size of each bin.
inline constexpr std::array<uint32_t, kBins> kMinBytesOfBin = [] {
  std::array<uint32_t, kBins> least = {};
  for (uint32_t bin = 0; bin < kBins; ++bin) {
    least[bin] = bin <= 16 ? bin * 128 : (bin - 15) * 2048;
    if (BinOf(least[bin]) != bin) __builtin_trap();
  }
  return least;
}();

// Blocks of up to so many bytes have bins that are 128 bytes apart.
constexpr uint32_t kLargestDirectBytes = 2048 - kBlockHeaderBytes;

// The way of most requests that no quick list serves: the blocks of the request's own bin are none,
// and the first block of the next filled bin gives its end and stays in its bin. Null where it is
// not so.
inline void* TryCarve(Heap* heap, uint32_t neededBytes) {
  const size_t bin = neededBytes / 128;
  const size_t filled = bin + heap->skip[bin].load(std::memory_order_relaxed);
  if (filled == bin || filled >= kBins) return nullptr;
  Block* block = heap->bins[filled];
  if (block->sizeBytes < neededBytes + kMinBytesOfBin[filled]) return nullptr;
  return HandOut(heap, CutTail(*heap, block, neededBytes));
}

// What AllocateFromHeap does for up to kLargestDirectBytes, as long as it is short. Null does not
// mean that there is no room.
inline void* TryAllocate(Heap* heap, uint32_t sizeBytes) {
  const uint32_t payloadBytes = PayloadBytes(sizeBytes);
  // The first list is never filled: that a size has no list and that its list is empty come to one
  // branch, which sizes in any order do not make hard to foresee.
  const size_t listedBytes = payloadBytes <= kLargestParkedBytes ? payloadBytes : 8;
  if (heap->quick[QuickListOf(listedBytes)] != nullptr) {
    return PayloadOf(PopParked(heap, QuickListOf(listedBytes)));
  }
  return TryCarve(heap, payloadBytes + kBlockHeaderBytes);
}

// The way back of what TryCarve cut: the block in front is free, and stays in its bin with this one
// added; the block behind is in use. False where it is not so, and then nothing was done.
inline bool TryMergeBack(const Heap& heap, Block* block) {
  if (block->previousBytes == 0) return false;
  Block* previous = Before(block);
  Block* after = After(block);
  const bool isLast = !IsInside(heap, after);
  if (previous->heap != nullptr || (!isLast && after->heap == nullptr)) return false;
  const uint32_t mergedBytes = previous->sizeBytes + block->sizeBytes;
  if (BinOf(mergedBytes) != previous->bin) return false;
  previous->sizeBytes = mergedBytes;
  if (!isLast) after->previousBytes = mergedBytes;
  return true;
}

// What FreeToHeap does, as long as it is short. False if it is not, and then nothing was done.
inline bool TryFree(Heap* heap, Block* block) {
  const size_t payloadBytes = block->sizeBytes - kBlockHeaderBytes;
  if (payloadBytes > kLargestParkedBytes) return TryMergeBack(*heap, block);
  Park(heap, QuickListOf(payloadBytes), block);
  return true;
}

}  // namespace kiv

#endif
