#include "memsys/slots.h"

#include "kivsdu/thread.h"

std::array<kiv::Slot, kiv::kMostThreadHeaps> kiv::slots;
kiv::Modulus kiv::slotCount;

kiv::Heap* kiv::AwaitSettledHeap(const Slot& slot) {
  for (;;) {
    Heap* heap = slot.heap.load(std::memory_order_acquire);
    if (slot.current.load(std::memory_order_acquire) == heap) return heap;
    static_cast<void>(KivSdThreadYield(nullptr));
  }
}
