// The slots of thread heaps, and which of them a request goes to.
#ifndef KIV_MEMSYS_SLOTS_H
#define KIV_MEMSYS_SLOTS_H

#include <array>
#include <atomic>
#include <cstdint>

#include "memheap/heap.h"

namespace kiv {

constexpr uint32_t kMostSlots = 64;

// Both name the same heap, except while the slot is being exchanged: `current` is then the heap
// that is tried or made for it.
struct Slot {
  std::atomic<Heap*> heap;
  std::atomic<Heap*> current;

  void Settle(Heap* owner) {
    // release: who finds the two equal finds a heap that is ready.
    current.store(owner, std::memory_order_release);
    heap.store(owner, std::memory_order_release);
  }
};
extern std::array<Slot, kMostSlots> slots;

void SetSlotCount(uint32_t count);

// The slot of a seed at a time of the allocation clock. A seed moves on every 10,000 ticks.
uint32_t SlotOf(uint64_t seed, uint64_t ticks);

// The heap of a slot, once the slot is not being exchanged.
Heap* SettledHeap(uint32_t number);

}  // namespace kiv

#endif
