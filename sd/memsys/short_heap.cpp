#include "kivsdu/shortheap.h"

#include <algorithm>

#include "kivsdu/manager.h"
#include "kivsdu/memory.h"
#include "kivsdu/status.h"
#include "memheap/heap_fast_path.h"
#include "memheap/heap_ring.h"
#include "memsys/large_block.h"
#include "memsys/settings.h"
#include "memsys/short_owner.h"
#include "memsys/short_pool.h"
#include "memsys/statistics.h"
#include "memsys/thread_heaps.h"

using namespace kiv;

namespace {

constexpr char kSource[] = "sd/memheap";

// A block to resize and its payload size.
struct Resized {
  void* payload;
  uint32_t oldBytes;
};

bool ResizeInShortHeap(const Resized& old, uint32_t newBytes, void** newBlock) {
  Heap* heap = BlockOf(old.payload)->heap;
  if (!IsShort(*heap)) return false;
  void* resized = ReallocateInHeap(heap, old.payload, newBytes);
  if (resized == nullptr) return false;
  CountFreed(old.oldBytes);
  CountAllocated(newBytes);
  *newBlock = resized;
  return true;
}

uint32_t MoveToOwner(AdShortHeapOwner* owner, const Resized& old, int32_t newSizeBytes,
                     void** newBlock) {
  const uint32_t status = adMemShortHeapMalloc(owner, newSizeBytes, newBlock, kSource, 0);
  if (status != KIV_ST_OK) return status;
  KivSdMemCopy(nullptr, *newBlock, old.payload,
               std::min(old.oldBytes, static_cast<uint32_t>(newSizeBytes)));
  static_cast<void>(adFree(old.payload, kSource, 0));
  return KIV_ST_OK;
}

uint32_t ResizeLarge(AdShortHeapOwner* owner, int32_t newSizeBytes, void* oldBlock,
                     void** newBlock) {
  if (!IsAboveHeaps(newSizeBytes)) {
    const auto oldBytes = static_cast<uint32_t>(LargeBlockOf(oldBlock)->sizeBytes);
    return MoveToOwner(owner, {oldBlock, oldBytes}, newSizeBytes, newBlock);
  }
  const uint32_t status =
      adRealloc(owner, static_cast<uint32_t>(newSizeBytes), oldBlock, newBlock, kSource, 0);
  if (status == KIV_ST_OK) AdoptLarge(owner, *newBlock);
  return status;
}

uint32_t ResizeSmall(AdShortHeapOwner* owner, int32_t newSizeBytes, void* oldBlock,
                     void** newBlock) {
  const Resized old = {oldBlock, BlockOf(oldBlock)->sizeBytes - kBlockHeaderBytes};
  if (!IsAboveHeaps(newSizeBytes) &&
      ResizeInShortHeap(old, static_cast<uint32_t>(newSizeBytes), newBlock)) {
    return KIV_ST_OK;
  }
  return MoveToOwner(owner, old, newSizeBytes, newBlock);
}

void ReleaseHeaps(AdShortHeapOwner* owner) {
  Heap* const first = CurrentHeap(owner);
  Heap* heap = first;
  do {
    Heap* next = heap->ringNext;  // before the release, which may move the heap to the pool's ring
    ReleaseShortHeap(heap);
    // Compatibility: a heap that is freed instead of pooled is counted twice, here and in its
    // release. Hosts know these counts.
    CountFreed(memorySettings.shortHeapBytes);
    heap = next;
  } while (heap != first);
  owner->heap = nullptr;
}

// Compatibility: while the no-free switch is on, nothing is freed and this loop does not end. Hosts
// end no owner that has large blocks after they turned the switch on.
void FreeLargeBlocks(AdShortHeapOwner* owner) {
  while (LargeBlock* first = FirstLarge(owner)) {
    static_cast<void>(adFree(PayloadOf(first->prev), kSource, 0));
  }
}

}  // namespace

void adMemShortHeapInit(AdShortHeapOwner* owner) {
  if (!memorySettings.shortHeaps || !InThreadHeapMode() || owner->heap != nullptr) return;
  Heap* heap = ObtainShortHeap();
  if (heap == nullptr) return;
  HeapRing::MakeAlone(heap);
  owner->heap = heap;
  owner->largeBlocks = nullptr;
  owner->freeDisabled = 0;
}

uint32_t adMemShortHeapMalloc(AdShortHeapOwner* owner, int32_t sizeBytes, void** block,
                              const char* /*file*/, uint32_t /*line*/) {
  const auto unsignedBytes = static_cast<uint32_t>(sizeBytes);
  Heap* heap = CurrentHeap(owner);
  // The subtraction wraps for sizes below 1, so that one comparison excludes them, too.
  if (unsignedBytes - 1 < memorySettings.directBytes && heap != nullptr) [[likely]] {
    if (void* payload = TryAllocate(heap, unsignedBytes)) [[likely]] {
      *block = payload;
      return KIV_ST_OK;
    }
  }
  return AllocateOwned(owner, sizeBytes, block);
}

uint32_t adMemShortHeapRealloc(AdShortHeapOwner* owner, int32_t newSizeBytes, void* oldBlock,
                               void** newBlock, const char* file, uint32_t line) {
  if (oldBlock == nullptr) {
    return adMemShortHeapMalloc(owner, newSizeBytes, newBlock, file, line);
  }
  if (newSizeBytes < 1) return KIV_ST_ARGUMENT;
  if (!InThreadHeapMode()) {
    return adRealloc(owner, static_cast<uint32_t>(newSizeBytes), oldBlock, newBlock, file, line);
  }
  return IsLarge(oldBlock) ? ResizeLarge(owner, newSizeBytes, oldBlock, newBlock)
                           : ResizeSmall(owner, newSizeBytes, oldBlock, newBlock);
}

void adMemShortHeapTerm(AdShortHeapOwner* owner) {
  if (!InThreadHeapMode()) return;
  if (owner->heap != nullptr) {
    ReleaseHeaps(owner);
    DrainShortPoolIfIdle();
  }
  FreeLargeBlocks(owner);
}

void adMemShortDisableFree(AdShortHeapOwner* owner) { owner->freeDisabled = 1; }

int32_t adMemShortCheckStatus(const AdShortHeapOwner* owner) {
  return owner->heap != nullptr ? 1 : 0;
}
