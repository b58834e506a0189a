// The input chooses operations on a heap of the library. After each, the heap must agree with its
// model, and the blocks in use must be unchanged.
#include <vector>

#include "fuzz/input.h"
#include "support/checked_heap.h"

namespace {

using kiv::fuzz::Check;
using kiv::fuzz::Input;
using kiv::test::CheckedHeap;
using kiv::test::HeapModel;

constexpr int kMaxOperations = 400;

// In a small arena, the first block lies in a bin for larger ones; no request may exceed it.
constexpr uint32_t kArenaBytes = 40'000;

class Run {
 public:
  explicit Run(Input* input) : input_(input), heap_(kArenaBytes) {}

  void Operate() {
    const uint8_t what = input_->Byte();
    if (what < 128 || blocks_.empty()) {
      Keep(heap_.Allocate(Size()));
    } else if (what < 208) {
      heap_.Free(Taken());
    } else if (what < 252) {
      const uint32_t block = Taken();
      const uint32_t moved = heap_.Reallocate(block, Size());
      Keep(moved == HeapModel::kNoBlock ? block : moved);
    } else {
      heap_.Consolidate();
    }
    if (!heap_.fault().empty()) Check(false, heap_.fault().c_str());
  }

 private:
  uint32_t Size() {
    const uint32_t size = input_->Byte();
    return size < 200 ? size : size * input_->Byte();
  }

  void Keep(uint32_t block) {
    if (block != HeapModel::kNoBlock) blocks_.push_back(block);
  }

  // Takes a block out of the list.
  uint32_t Taken() {
    const size_t index = input_->Byte() % blocks_.size();
    const uint32_t block = blocks_[index];
    blocks_[index] = blocks_.back();
    blocks_.pop_back();
    return block;
  }

  Input* input_;
  CheckedHeap heap_;
  std::vector<uint32_t> blocks_;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t count) {
  Input input(bytes, count);
  Run run(&input);
  for (int i = 0; i < kMaxOperations && !input.IsAtEnd(); ++i) run.Operate();
  return 0;
}
