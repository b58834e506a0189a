#include "soak/heaps.h"

#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "kivsdu/kivsdu.h"
#include "memheap/block.h"
#include "memheap/heap.h"
#include "soak/check.h"
#include "support/heap_walk.h"

namespace kiv::soak {
namespace {

constexpr size_t kHeapBytesWord = 3;
constexpr size_t kShortHeapBytesWord = 4;

uint32_t Setting(size_t word) {
  uint64_t settings[7] = {};
  adMemGetMemorySettings(settings);
  return static_cast<uint32_t>(settings[word]);
}

uint32_t OwnThread() {
  uint32_t id = 0;
  Done(KivSdThreadIdGet(nullptr, &id), "KivSdThreadIdGet");
  return id;
}

void Look(Heap* heap, uint32_t bytes, const char* kind) {
  const std::string fault = test::HeapWalk(*heap, bytes).Look();
  if (!fault.empty()) Break(std::string("walk of a ") + kind + ": " + fault);
}

}  // namespace

class Heaps::Hold {
 public:
  explicit Hold(std::atomic_flag* isHeld) : isHeld_(*isHeld) {
    while (isHeld_.test_and_set(std::memory_order_acquire)) std::this_thread::yield();
  }
  ~Hold() { isHeld_.clear(std::memory_order_release); }
  Hold(const Hold&) = delete;
  Hold& operator=(const Hold&) = delete;

 private:
  std::atomic_flag& isHeld_;
};

void Heaps::NoteHeapOf(void* block) {
  if (IsLarge(block)) return;
  const Hold hold(&isHeld_);
  heaps_.insert(BlockOf(block)->heap);
}

uint32_t Heaps::Walk() {
  std::vector<Heap*> heaps;
  {
    const Hold hold(&isHeld_);
    heaps.assign(heaps_.begin(), heaps_.end());
  }
  const uint32_t bytes = Setting(kHeapBytesWord);
  const uint32_t thread = OwnThread();
  for (Heap* heap : heaps) {
    // No operation of the library may run on this thread while it holds the lock.
    KivSdSpinlockAcquire(heap->lock, thread);
    Look(heap, bytes, "thread heap");
    KivSdSpinlockRelease(heap->lock);
  }
  return static_cast<uint32_t>(heaps.size());
}

void WalkShortHeap(Heap* heap) { Look(heap, Setting(kShortHeapBytesWord), "short heap"); }

}  // namespace kiv::soak
