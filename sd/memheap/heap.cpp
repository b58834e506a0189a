#include "memheap/heap.h"

#include <new>

#include "kivsdu/memory.h"
#include "memheap/bins.h"
#include "memheap/heap_fast_path.h"

using namespace kiv;

namespace {

// ---- Carving ----

void* Carve(Heap* heap, Block* block, uint32_t sizeBytes) {
  if (block->sizeBytes < sizeBytes + kMinFreeBytes) {
    RemoveFromBin(heap, block);
    return HandOut(heap, block);
  }
  Block* cut = CutTail(*heap, block, sizeBytes);
  const uint32_t bin = BinOf(block->sizeBytes);
  if (bin < block->bin) MoveDown(heap, bin, block);
  return HandOut(heap, cut);
}

// ---- Coalescing ----

// A block that is being freed, and the free neighbours that it merges with.
struct Merge {
  Block* start;
  Block* previous;  // null where there is no free neighbour
  Block* next;
  uint32_t sizeBytes;
};

Merge FindNeighbours(const Heap& heap, Block* block) {
  Merge merge = {block, nullptr, nullptr, block->sizeBytes};
  Block* next = After(block);
  if (block->previousBytes != 0) {
    Block* previous = Before(block);
    if (previous->heap == nullptr) {
      merge.previous = merge.start = previous;
      merge.sizeBytes += previous->sizeBytes;
    }
  }
  if (IsInside(heap, next) && next->heap == nullptr) {
    merge.next = next;
    merge.sizeBytes += next->sizeBytes;
  }
  return merge;
}

// Puts the merged block into its bin. If a neighbour is in that bin already, the merged block takes
// the neighbour's place. That saves a removal and an insertion; it must not change, because the
// order within a bin decides where later blocks are placed.
void BinMerged(Heap* heap, Block* block, const Merge& merge, uint32_t bin) {
  if (merge.previous == nullptr) block->heap = nullptr;
  if (merge.previous != nullptr && merge.previous->bin == bin) {
    if (merge.next != nullptr) RemoveFromBin(heap, merge.next);
    RaiseBound(heap, bin, merge.sizeBytes);
    return;
  }
  if (merge.previous != nullptr) RemoveFromBin(heap, merge.previous);
  if (merge.next != nullptr && merge.next->bin == bin) {
    ReplaceInBin(heap, merge.next, merge.start);
    return;
  }
  if (merge.next != nullptr) RemoveFromBin(heap, merge.next);
  InsertIntoBin(heap, bin, merge.start);
}

void Coalesce(Heap* heap, Block* block) {
  const Merge merge = FindNeighbours(*heap, block);
  merge.start->sizeBytes = merge.sizeBytes;
  BinMerged(heap, block, merge, BinOf(merge.sizeBytes));
  UpdateNeighbour(*heap, merge.start);
}

// Makes the surplus of a shrinking block a free block. It can merge only with the block after it:
// the block before it is the one that shrinks, which stays in use.
void GiveBackTail(Heap* heap, Block* block, uint32_t sizeBytes) {
  const uint32_t tailBytes = block->sizeBytes - sizeBytes;
  block->sizeBytes = sizeBytes;
  Block* tail = After(block);
  tail->sizeBytes = tailBytes;
  tail->previousBytes = sizeBytes;
  Coalesce(heap, tail);
}

void* Move(Heap* heap, Block* block, uint32_t sizeBytes) {
  void* made = AllocateFromHeap(heap, sizeBytes);
  if (made == nullptr) return nullptr;
  KivSdMemCopy(nullptr, made, PayloadOf(block), block->sizeBytes - kBlockHeaderBytes);
  FreeToHeap(heap, PayloadOf(block));
  return made;
}

}  // namespace

void kiv::InitializeHeap(Heap* heap, uint32_t arenaBytes, KivSdSpinlock* lock) {
  new (heap) Heap{};
  heap->lock = lock;
  if (lock != nullptr) heap->lockIdentifier = kLockedHeapIdentifier;
  auto* first = reinterpret_cast<Block*>(heap + 1);
  first->sizeBytes = (arenaBytes - static_cast<uint32_t>(sizeof(Heap))) & ~7U;
  first->previousBytes = 0;
  first->heap = nullptr;
  heap->arenaEnd = reinterpret_cast<char*>(After(first));
  FillLastBin(heap, first);
}

void* kiv::AllocateFromHeap(Heap* heap, uint32_t sizeBytes) {
  if (void* payload = TryAllocate(heap, sizeBytes)) return payload;
  const uint32_t neededBytes = PayloadBytes(sizeBytes) + kBlockHeaderBytes;
  Block* block = FindFree(heap, neededBytes);
  if (block == nullptr && heap->parked.load(std::memory_order_relaxed) != 0) {
    ConsolidateHeap(heap);
    block = FindFree(heap, neededBytes);
  }
  return block == nullptr ? nullptr : Carve(heap, block, neededBytes);
}

void kiv::FreeToHeap(Heap* heap, void* payload) {
  Block* block = BlockOf(payload);
  if (!TryFree(heap, block)) Coalesce(heap, block);
}

void* kiv::ReallocateInHeap(Heap* heap, void* payload, uint32_t sizeBytes) {
  Block* block = BlockOf(payload);
  const uint32_t neededBytes = PayloadBytes(sizeBytes) + kBlockHeaderBytes;
  if (neededBytes > block->sizeBytes) return Move(heap, block, sizeBytes);
  if (block->sizeBytes - neededBytes >= kMinFreeBytes) GiveBackTail(heap, block, neededBytes);
  return payload;
}

void kiv::ConsolidateHeap(Heap* heap) {
  for (Block*& list : heap->quick) {
    // Parked neighbours still point to their heap: each is merged in its own turn.
    for (Block* block = list; block != nullptr;) {
      Block* next = block->next;
      Coalesce(heap, block);
      block = next;
    }
    list = nullptr;
  }
  heap->parked.store(0, std::memory_order_relaxed);
}
