// The cache of freed blocks that each thread has in plain mode, from the thread's start to its end.
#include "kivsdu/kivsdu.h"
#include "soak/check.h"
#include "soak/subsystem.h"

namespace kiv::soak {
namespace {

constexpr int kBlocks = 16;

class ThreadCachesVisitor : public Visitor {
 public:
  ThreadCachesVisitor(const World& /*world*/, uint32_t /*place*/, Random* random)
      : random_(*random) {
    Done(adCreateThreadAlloc(), "adCreateThreadAlloc");
    adThreadPrealloc();
  }
  ~ThreadCachesVisitor() override { Done(adDestroyThreadAlloc(), "adDestroyThreadAlloc"); }

  // The blocks of a step return to the cache in another order.
  void Step() override {
    void* blocks[kBlocks] = {};
    uint32_t sizes[kBlocks] = {};
    for (int at = 0; at < kBlocks; ++at) Take(&blocks[at], &sizes[at]);
    for (int at = 0; at < kBlocks; ++at) {
      const int other = (at * 5) % kBlocks;
      Expect(IsFilled(blocks[other], sizes[other], sizes[other]),
             "a block of a thread cache keeps its content");
      Done(adFree(blocks[other], "soak", 1), "adFree");
    }
    if (random_.OneIn(8)) Done(adFreelistCompaction(), "adFreelistCompaction");
  }

 private:
  void Take(void** block, uint32_t* size) {
    *size = 1u << random_.Between(0, 12);
    const uint8_t policy = random_.OneIn(4) ? AD_POLICY_MANDATORY : AD_POLICY_FULL;
    Done(adMallocPolicy(nullptr, *size, block, policy, "soak", 1), "adMallocPolicy");
    Fill(*block, *size, *size);
  }

  Random& random_;
};

}  // namespace

std::unique_ptr<Subsystem> MakeThreadCaches(const World& world) {
  return std::make_unique<Separate<ThreadCachesVisitor>>(world);
}

}  // namespace kiv::soak
