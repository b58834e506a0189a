// Regions and large blocks up to the memory limit. Threads are refused all the time; no total may
// exceed the limit.
#include <vector>

#include "kivsdu/kivsdu.h"
#include "soak/check.h"
#include "soak/subsystem.h"

namespace kiv::soak {
namespace {

constexpr uint32_t kMostRegions = 8;
constexpr uint32_t kMostBlocks = 128;  // in a region: 1 MiB
constexpr uint32_t kMostBytes = 1 << 20;

class AccountingVisitor : public Visitor {
 public:
  AccountingVisitor(const World& world, uint32_t /*place*/, Random* random)
      : hasHeaps_(world.hasHeaps), random_(*random) {
    adMemGetMemorySettings(settings_);
  }
  ~AccountingVisitor() override { GiveBack(); }

  void Step() override {
    if (random_.OneIn(4)) return GiveBack();
    Register();
    AskForLarge();
    if (hasHeaps_) CheckPeaks();
  }

 private:
  void Register() {
    if (count_ == kMostRegions) return;
    if (DoneOr(adMemAlignedIncCounter(&regions_[count_], random_.Between(1, kMostBlocks)),
               KIV_ST_ALIGNED_COMMIT, "adMemAlignedIncCounter")) {
      ++count_;
    }
  }

  void AskForLarge() {
    const uint32_t size = random_.Between(70'000, kMostBytes);
    void* block = nullptr;
    if (!DoneOr(adMalloc(nullptr, size, &block, "soak", 1), KIV_ST_OUT_OF_MEMORY, "adMalloc")) {
      Expect(block == nullptr, "a refused request yields no block");
      return;
    }
    Fill(block, 64, size);
    Expect(IsFilled(block, 64, size), "a large block keeps its content");
    Done(adFree(block, "soak", 1), "adFree");
  }

  void GiveBack() {
    while (count_ > 0) adMemAlignedDecCounter(&regions_[--count_]);
  }

  void CheckPeaks() const {
    uint64_t totals[6] = {};
    Done(adMemGetUsedMemory(&totals[0], &totals[1], &totals[2], &totals[3], &totals[4], &totals[5]),
         "adMemGetUsedMemory");
    Expect(totals[5] <= settings_[0], "the peak of the memory in use is within the limit");
  }

  const bool hasHeaps_;
  Random& random_;
  uint64_t settings_[7] = {};
  char regions_[kMostRegions] = {};
  uint32_t count_ = 0;
};

}  // namespace

std::unique_ptr<Subsystem> MakeAccounting(const World& world) {
  return std::make_unique<Separate<AccountingVisitor>>(world);
}

}  // namespace kiv::soak
