// The thread heaps of the process, and walks through them.
#ifndef KIV_TESTS_SOAK_HEAPS_H
#define KIV_TESTS_SOAK_HEAPS_H

#include <cstdint>
#include <mutex>
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
  std::mutex mutex_;
  std::set<Heap*> heaps_;
};

// Checks a short heap, on its owner's thread.
void WalkShortHeap(Heap* heap);

}  // namespace kiv::soak

#endif
