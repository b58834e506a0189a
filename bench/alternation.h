// Compares a raw call with the library's operation, in alternating blocks of a few calls each. Only
// measurements close in time show a difference of ten nanoseconds between calls of a microsecond.
#ifndef KIV_BENCH_ALTERNATION_H
#define KIV_BENCH_ALTERNATION_H

#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <vector>

namespace kiv::bench {

constexpr int kCallsOfBlock = 16;

// Calls `call` once for each number in a block. Returns nanoseconds per call.
template <typename Call>
double TimeOfBlock(Call& call) {
  const auto start = std::chrono::steady_clock::now();
  for (int number = 0; number < kCallsOfBlock; ++number) {
    benchmark::DoNotOptimize(call(number));
    benchmark::ClobberMemory();
  }
  const std::chrono::duration<double, std::nano> time = std::chrono::steady_clock::now() - start;
  return time.count() / kCallsOfBlock;
}

// The lower quartile resists disturbance: other work on the machine makes a block slower, never
// faster.
inline double LowerQuartile(std::vector<double>* times) {
  const auto quartile = times->begin() + static_cast<std::ptrdiff_t>(times->size() / 4);
  std::nth_element(times->begin(), quartile, times->end());
  return *quartile;
}

// Sets the counters "raw" and "library", in nanoseconds per call, and their difference "added". An
// iteration is two blocks. `prepare` runs before each block and is not timed.
template <typename Prepare, typename Raw, typename Library>
void Alternate(benchmark::State& state, Prepare prepare, Raw raw, Library library) {
  std::vector<double> rawTimes;
  std::vector<double> libraryTimes;
  for (auto _ : state) {
    prepare();
    rawTimes.push_back(TimeOfBlock(raw));
    prepare();
    libraryTimes.push_back(TimeOfBlock(library));
  }
  const double rawTime = LowerQuartile(&rawTimes);
  const double libraryTime = LowerQuartile(&libraryTimes);
  state.counters["raw"] = rawTime;
  state.counters["library"] = libraryTime;
  state.counters["added"] = libraryTime - rawTime;
}

}  // namespace kiv::bench

#endif
