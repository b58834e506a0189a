// The thread heaps of the process, and walks through them.
#ifndef KIV_TESTS_SOAK_HEAPS_H
#define KIV_TESTS_SOAK_HEAPS_H

#include <atomic>
#include <cstdint>
#include <set>

namespace kiv {
struct Heap;
}

namespace kiv::soak {

class Heaps {
 public:
  // Notes the heap of a block, if the block lies in a thread heap. Heaps are never released.
  void NoteHeapOf(void* block);

  // Locks one heap after the other and checks every block, ring and list in it. Returns the number
  // of heaps. Any thread.
  uint32_t Walk();

 private:
  class Hold;

  // Guards the set. Not a std::mutex: for Windows, one that threads have waited for keeps a handle,
  // which would look like a leak at the end.
  std::atomic_flag isHeld_;
  std::set<Heap*> heaps_;
};

// Checks a short heap, on its owner's thread.
void WalkShortHeap(Heap* heap);

}  // namespace kiv::soak

#endif
