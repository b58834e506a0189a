// Tests whether an operation is a full fence.
//
// Each of two threads writes its own word, runs the operation, and reads the other thread's word.
// If the operation is not a full fence, both threads may read the old values.
#ifndef KIV_TESTS_STORE_BUFFERING_H
#define KIV_TESTS_STORE_BUFFERING_H

#include <atomic>
#include <cstdint>
#include <thread>

#include "support/threads.h"
#include "support/waiting.h"

namespace kiv::test {

// Keeps two threads in step. They pass each step almost together if each has a processor.
class Pace {
 public:
  // Returns when both threads have reached the step. Steps count from 1.
  void Meet(uint32_t number, int32_t step) {
    at_[number] = step;
    for (int32_t look = 0; at_[1 - number] < step; ++look) {
      if (look > kLooksBeforeYield) std::this_thread::yield();
    }
  }

 private:
  static constexpr int32_t kLooksBeforeYield = 1000;
  std::atomic<int32_t> at_[2] = {};
};

// A short delay that differs between rounds and between the threads, so that neither thread is
// always first.
inline void Stagger(uint32_t number, int32_t round) {
  std::atomic<int32_t> left{round * (number == 0 ? 5 : 7) % 64};
  while (left.load(std::memory_order_relaxed) > 0) left.fetch_sub(1, std::memory_order_relaxed);
}

// Returns the number of rounds in which both threads missed the other's write. Calls
// prepare(thread) before the write and operation(thread) after it; thread is 0 or 1. Ends early if
// the machine is too busy to run both threads.
template <typename Prepare, typename Operation>
int32_t BothMissed(Prepare prepare, Operation operation) {
  constexpr int32_t kRounds = 20'000;
  constexpr double kLongEnoughMs = 300;
  struct alignas(64) Line {
    std::atomic<int32_t> word{0};
    int32_t seen = 0;
  };
  Line lines[2];
  int32_t bothMissed = 0;
  bool enough = false;
  Pace pace;
  const Stopwatch watch;
  OnThreads(2, [&](uint32_t number) {
    for (int32_t round = 1; round <= kRounds; ++round) {
      prepare(number);
      pace.Meet(number, 2 * round - 1);
      if (enough) return;
      Stagger(number, round);
      lines[number].word.store(round, std::memory_order_relaxed);
      operation(number);
      lines[number].seen = lines[1 - number].word.load(std::memory_order_relaxed);
      pace.Meet(number, 2 * round);
      if (number == 1) continue;
      if (lines[0].seen != round && lines[1].seen != round) ++bothMissed;
      enough = watch.ElapsedMs() > kLongEnoughMs;
    }
  });
  return bothMissed;
}

}  // namespace kiv::test

#endif
