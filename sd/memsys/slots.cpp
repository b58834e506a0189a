#include "memsys/slots.h"

#include "kivsdu/thread.h"

using namespace kiv;

std::array<Slot, kMaxThreadHeaps> kiv::slots;
Modulus kiv::slotCount;

Heap* kiv::AwaitSettledHeap(const Slot& slot) {
  for (;;) {
    Heap* heap = slot.heap.load(std::memory_order_acquire);
    if (slot.current.load(std::memory_order_acquire) == heap) return heap;
    static_cast<void>(KivSdThreadYield(nullptr));
  }
}
