#include "memsys/short_owner.h"

#include "kivsdu/manager.h"
#include "kivsdu/status.h"
#include "memheap/heap_ring.h"
#include "memsys/large_block.h"
#include "memsys/short_pool.h"
#include "memsys/statistics.h"
#include "memsys/thread_heaps.h"

using namespace kiv;

namespace {

constexpr char kSource[] = "sd/memheap";

void* AllocateFromOtherHeaps(Heap* current, uint32_t sizeBytes) {
  const uint32_t neededBytes = PayloadBytes(sizeBytes) + kBlockHeaderBytes;
  for (Heap* heap = current->ringNext; heap != current; heap = heap->ringNext) {
    if (!MayFind(*heap, neededBytes)) continue;
    if (void* payload = AllocateFromHeap(heap, sizeBytes)) return payload;
  }
  return nullptr;
}

// Adds a new heap after the current one and makes it the current heap, because it has room.
void* AllocateFromFurtherHeap(AdShortHeapOwner* owner, uint32_t sizeBytes) {
  Heap* heap = ObtainShortHeap();
  if (heap == nullptr) return nullptr;
  HeapRing::InsertBefore(CurrentHeap(owner)->ringNext, heap);
  owner->heap = heap;
  return AllocateFromHeap(heap, sizeBytes);
}

void* AllocateFromHeapsOf(AdShortHeapOwner* owner, uint32_t sizeBytes) {
  Heap* current = CurrentHeap(owner);
  if (void* payload = AllocateFromHeap(current, sizeBytes)) return payload;
  if (void* payload = AllocateFromOtherHeaps(current, sizeBytes)) return payload;
  return AllocateFromFurtherHeap(owner, sizeBytes);
}

uint32_t AllocateLargeOf(AdShortHeapOwner* owner, int32_t sizeBytes, void** block) {
  const uint32_t status = adMalloc(owner, static_cast<uint32_t>(sizeBytes), block, kSource, 0);
  if (status == KIV_ST_OK) AdoptLarge(owner, *block);
  return status;
}

}  // namespace

void kiv::AdoptLarge(AdShortHeapOwner* owner, void* payload) {
  if (InThreadHeapMode()) LinkLarge(&owner->largeBlocks, LargeBlockOf(payload));
}

uint32_t kiv::AllocateOwned(AdShortHeapOwner* owner, int32_t sizeBytes, void** block) {
  if (sizeBytes < 1) return KIV_ST_ARGUMENT;
  if (IsAboveHeaps(sizeBytes)) return AllocateLargeOf(owner, sizeBytes, block);
  if (owner->heap == nullptr) return KIV_ST_ARGUMENT;
  *block = AllocateFromHeapsOf(owner, static_cast<uint32_t>(sizeBytes));
  if (*block == nullptr) return KIV_ST_OUT_OF_MEMORY;
  CountAllocated(static_cast<uint32_t>(sizeBytes));
  return KIV_ST_OK;
}
