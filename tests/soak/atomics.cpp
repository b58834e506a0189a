// Counters that all threads change by atomic operations: no change may be lost.
#include <atomic>

#include "kivsdu/sync.h"
#include "soak/check.h"
#include "soak/subsystem.h"

namespace kiv::soak {
namespace {

constexpr int kRounds = 50;

struct Words {
  int32_t sum = 0;
  uint64_t flag = 0;     // set by one thread at a time
  uint64_t swapped = 0;  // counted up by compare-and-swap
  uint64_t guarded = 0;  // changed only while the flag is set
  std::atomic<int64_t> added{0};
  std::atomic<uint64_t> swaps{0};
  std::atomic<uint64_t> entries{0};
};

class AtomicsVisitor : public Visitor {
 public:
  AtomicsVisitor(Words* words, Random* random) : words_(*words), random_(*random) {}

  void Step() override {
    for (int round = 0; round < kRounds; ++round) {
      Add();
      Swap();
      if (KivSdAtomicSet(&words_.flag) == 0) UseGuarded();
    }
  }

 private:
  void Add() {
    const auto addend = static_cast<int32_t>(random_.Below(100)) - 50;
    KivSdAtomicAdd(&words_.sum, addend);
    words_.added.fetch_add(addend);
  }

  void Swap() {
    const uint64_t seen = __atomic_load_n(&words_.swapped, __ATOMIC_RELAXED);
    if (KivSdCmpXchgPtr(seen, seen + 1, &words_.swapped) != 0) words_.swaps.fetch_add(1);
  }

  void UseGuarded() {
    ++words_.guarded;
    words_.entries.fetch_add(1);
    Expect(KivSdAtomicUnset(&words_.flag) == 1, "a flag stays set until its setter unsets it");
  }

  Words& words_;
  Random& random_;
};

class Atomics : public Subsystem {
 public:
  std::unique_ptr<Visitor> Enter(uint32_t /*place*/, Random* random) override {
    return std::make_unique<AtomicsVisitor>(&words_, random);
  }

  void Check() override {
    Expect(words_.sum == static_cast<int32_t>(words_.added.load()), "no addition is lost");
    Expect(words_.swapped == words_.swaps.load(), "no compare-and-swap is lost");
    Expect(words_.guarded == words_.entries.load(), "a flag admits one thread at a time");
  }

 private:
  Words words_;
};

}  // namespace

std::unique_ptr<Subsystem> MakeAtomics(const World& /*world*/) {
  return std::make_unique<Atomics>();
}

}  // namespace kiv::soak
