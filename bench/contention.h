// Threads that want the same thing at the same time, for a while.
#ifndef KIV_BENCH_CONTENTION_H
#define KIV_BENCH_CONTENTION_H

#include <benchmark/benchmark.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <thread>
#include <vector>

namespace kiv::bench {

constexpr std::chrono::milliseconds kWindow{60};

// Tells threads when to begin and when to end; a line that nobody writes in between.
class alignas(64) Window {
 public:
  bool IsOpen() const { return !closed_.load(std::memory_order_relaxed); }

  // For the threads, when they are prepared: waits until all of them are.
  void Await() {
    ++arrived_;
    while (!open_.load()) std::this_thread::yield();
  }

  // Lets the threads run for the window's time. The seconds that it took.
  double Run(int threads) {
    while (arrived_.load() != threads) std::this_thread::yield();
    const auto start = std::chrono::steady_clock::now();
    open_ = true;
    std::this_thread::sleep_for(kWindow);
    const auto end = std::chrono::steady_clock::now();
    closed_ = true;
    return std::chrono::duration<double>(end - start).count();
  }

 private:
  std::atomic<int> arrived_{0};
  std::atomic<bool> open_{false};
  alignas(64) std::atomic<bool> closed_{false};
};

struct Outcome {
  double seconds;
  std::vector<uint64_t> operations;  // of each thread
};

// Each thread calls body(number, &window), which prepares, awaits the window, works while it is
// open, and returns how many operations it did.
template <typename Body>
Outcome RunTogether(int threads, Body body) {
  Window window;
  Outcome outcome{0, std::vector<uint64_t>(static_cast<size_t>(threads))};
  std::vector<std::thread> runners;
  for (int number = 0; number < threads; ++number) {
    runners.emplace_back(
        [&, number] { outcome.operations[static_cast<size_t>(number)] = body(number, &window); });
  }
  outcome.seconds = window.Run(threads);
  for (std::thread& runner : runners) runner.join();
  return outcome;
}

// The time of an operation of all threads together, as the iteration's; and how much of its fair
// share the thread got that got least: 1 is fair, 0 is starved.
inline void Report(benchmark::State& state, const Outcome& outcome) {
  uint64_t total = 0;
  for (const uint64_t operations : outcome.operations) total += operations;
  const uint64_t least = *std::min_element(outcome.operations.begin(), outcome.operations.end());
  const auto threads = static_cast<double>(outcome.operations.size());
  state.SetIterationTime(outcome.seconds / static_cast<double>(total));
  state.counters["least_share"] = static_cast<double>(least) * threads / static_cast<double>(total);
}

}  // namespace kiv::bench

#endif
