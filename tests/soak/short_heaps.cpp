// Owners of short heaps: units of work that release all their blocks together. Only processes with
// thread heaps have them.
#include "kivsdu/kivsdu.h"
#include "soak/check.h"
#include "soak/subsystem.h"

namespace kiv::soak {
namespace {

constexpr int kBlocks = 60;
constexpr uint32_t kStepsPerWalk = 16;

class ShortHeapsVisitor : public Visitor {
 public:
  ShortHeapsVisitor(const World& world, uint32_t /*place*/, Random* random)
      : hasHeaps_(world.hasHeaps), random_(*random) {}

  void Step() override {
    AdShortHeapOwner owner = {};
    adMemShortHeapInit(&owner);
    // Other threads may have used up the limit.
    if (adMemShortCheckStatus(&owner) != 0) {
      Expect(hasHeaps_, "plain mode has no short heaps");
      UseBlocks(&owner);
      if (random_.OneIn(kStepsPerWalk)) WalkShortHeap(static_cast<Heap*>(owner.heap));
    }
    adMemShortHeapTerm(&owner);
  }

 private:
  void UseBlocks(AdShortHeapOwner* owner) {
    void* last = nullptr;
    uint32_t lastSize = 0;
    for (int count = 0; count < kBlocks; ++count) {
      const uint32_t size =
          random_.OneIn(20) ? random_.Between(1, 80'000) : random_.Between(1, 900);
      void* block = nullptr;
      const uint32_t status =
          adMemShortHeapMalloc(owner, static_cast<int32_t>(size), &block, "soak", 1);
      if (!DoneOr(status, KIV_ST_OUT_OF_MEMORY, "adMemShortHeapMalloc")) return;
      Fill(block, size, size);
      if (last != nullptr) {
        Expect(IsFilled(last, lastSize, lastSize), "a block of a short heap keeps its content");
        if (random_.OneIn(2)) Done(adFree(last, "soak", 1), "adFree");
      }
      last = block;
      lastSize = size;
    }
  }

  const bool hasHeaps_;
  Random& random_;
};

}  // namespace

std::unique_ptr<Subsystem> MakeShortHeaps(const World& world) {
  return std::make_unique<Separate<ShortHeapsVisitor>>(world);
}

}  // namespace kiv::soak
