// Whether an operation is a full fence.
//
// Two threads each write a word of their own, do the operation, and read the other's word: without
// a full fence between, both may read what was there before the writes.
#ifndef KIV_TESTS_STORE_BUFFERING_H
#define KIV_TESTS_STORE_BUFFERING_H

#include <atomic>
#include <cstdint>
#include <thread>

#include "support/threads.h"
#include "support/waiting.h"

namespace kiv::test {

// Two threads that keep step, closely where each has a processor.
class Pace {
 public:
  // Returns when both are at the step; steps count from 1.
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

// A short while, another one each round and for each thread: which of two threads sees the other
// first does not stay the same.
inline void Stagger(uint32_t number, int32_t round) {
  std::atomic<int32_t> left{round * (number == 0 ? 5 : 7) % 64};
  while (left.load(std::memory_order_relaxed) > 0) left.fetch_sub(1, std::memory_order_relaxed);
}

// How often both threads missed the other's write. Calls prepare(thread) before the write and
// operation(thread) behind it, thread 0 or 1. Ends early where the machine is too busy to run
// both threads.
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
