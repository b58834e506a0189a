// A heap of the library and its model. Every operation is applied to both. Afterwards both must
// have returned the same block and be in the same state, and the blocks in use must be unchanged.
#ifndef KIV_TESTS_CHECKED_HEAP_H
#define KIV_TESTS_CHECKED_HEAP_H

#include <cstdint>
#include <map>
#include <memory>
#include <string>

#include "memheap/heap.h"
#include "model/heap_model.h"
#include "support/heap_walk.h"

namespace kiv::test {

class CheckedHeap {
 public:
  explicit CheckedHeap(uint32_t arenaBytes, KivSdSpinlock* lock = nullptr);

  // The operations of the model. A block is given by its offset. A block in use is filled to its
  // last byte.
  uint32_t Allocate(uint32_t sizeBytes);
  void Free(uint32_t block);
  uint32_t Reallocate(uint32_t block, uint32_t sizeBytes);
  void Consolidate();

  // The first fault found, or an empty text. After a fault the operations do nothing.
  const std::string& fault() const { return fault_; }

  // The cheap comparisons follow every operation: the returned block, its header, the skip table,
  // the heads of the bins and the parked count. A long run may do the rest less often.
  struct Pace {
    uint32_t walkAfterEach = 1;  // operations between two walks of the arena
    uint32_t readAfterEach = 1;  // operations between two checks of all blocks in use
  };
  void SetPace(Pace pace) { pace_ = pace; }

  // Walks the arena and checks all blocks in use.
  void CheckEverything();

  Heap& heap() { return *heap_; }
  const HeapModel& model() const { return model_; }
  const HeapWalk& walk() const { return walk_; }  // result of the last walk

 private:
  void Check(uint32_t touched);
  void CheckBriefly(uint32_t touched);
  void CheckByWalking();
  void CheckContents();
  bool Holds(uint32_t block, uint32_t pattern, uint32_t sizeBytes);
  void Fill(uint32_t block);
  void Fault(const std::string& what);

  char* PayloadAt(uint32_t block) { return arena_.get() + block + HeapModel::kHeaderBytes; }
  uint32_t OffsetOf(void* payload) const;

  uint32_t arenaBytes_;
  std::unique_ptr<char[]> arena_;
  Heap* heap_;
  HeapModel model_;
  HeapWalk walk_;
  std::map<uint32_t, uint32_t> patterns_;  // the fill pattern of each block in use
  uint32_t nextPattern_ = 0;
  Pace pace_;
  uint64_t operations_ = 0;
  std::string fault_;
};

}  // namespace kiv::test

#endif
