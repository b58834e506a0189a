// Runs a random schedule of operations on several threads, with pauses in between, and records when
// each was called and returned.
#ifndef KIV_TESTS_LINEARIZABILITY_RECORDER_H
#define KIV_TESTS_LINEARIZABILITY_RECORDER_H

#include <atomic>
#include <cstdint>
#include <random>
#include <thread>
#include <vector>

#include "linearizability/checker.h"
#include "support/threads.h"

namespace kiv::linearizability {

constexpr uint32_t kThreads = 4;
constexpr uint32_t kOperationsOfThread = 12;
static_assert(kThreads * kOperationsOfThread <= kMaxOperations);

// Nothing, a yield or a short sleep.
inline void Pause(std::mt19937* random) {
  const uint32_t choice = (*random)() % 8;
  if (choice < 3) std::this_thread::yield();
  if (choice == 3) std::this_thread::sleep_for(std::chrono::microseconds((*random)() % 50));
}

// Each thread calls `operate(thread, random, record)` and passes each of its operations to
// `record(run)`, where `run()` carries it out and returns the call with its results.
template <typename Call, typename Operate>
std::vector<Operation<Call>> Record(uint32_t seed, Operate operate) {
  std::atomic<uint64_t> clock{0};
  std::vector<std::vector<Operation<Call>>> histories(kThreads);
  kiv::test::OnThreads(kThreads, [&](uint32_t thread) {
    std::mt19937 random(seed * kThreads + thread);
    const auto record = [&](auto run) {
      Pause(&random);
      const uint64_t called = clock.fetch_add(1);
      const Call call = run();
      const uint64_t returned = clock.fetch_add(1);
      histories[thread].push_back({call, called, returned});
      return call;
    };
    operate(thread, &random, record);
  });
  std::vector<Operation<Call>> whole;
  for (const auto& history : histories) whole.insert(whole.end(), history.begin(), history.end());
  return whole;
}

}  // namespace kiv::linearizability

#endif
