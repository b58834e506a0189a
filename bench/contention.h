// Runs threads that compete with each other for a fixed time.
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

// Starts and ends the threads' work. No thread writes the line of `closed_` in between.
class alignas(64) Window {
 public:
  bool IsOpen() const { return !closed_.load(std::memory_order_relaxed); }

  // Called by each thread once it is ready: waits until all threads are ready.
  void Await() {
    ++arrived_;
    while (!open_.load()) std::this_thread::yield();
  }

  // Lets the threads run for kWindow. Returns the seconds that passed.
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
  std::vector<uint64_t> operations;  // by thread
};

// Each thread calls body(number, &window). The body prepares its work, awaits the window, works
// while the window is open, and returns its count of operations.
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

// Reports the time per operation of all threads together as the iteration's time. `least_share` is
// the fewest operations of any thread, divided by the mean: 1 is fair, 0 is starved.
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
