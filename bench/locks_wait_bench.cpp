// Waiting times for a lock that two threads contend for all the time. The time is the mean wait of
// a short round; `longest_to_mean` is the round's longest wait divided by its mean. Both are
// medians over all rounds of both threads. Preemption lengthens the
// waits of every lock; rounds are short, which limits its effect to few of them.
#include <x86intrin.h>

#include "contention.h"
#include "lock_contenders.h"

namespace {

using namespace kiv::bench;

constexpr int kThreads = 2;
constexpr int kRoundTakings = 500;

// The processor's time-stamp counter, which is cheap to read, and the clock that yields its rate.
struct Clocks {
  uint64_t ticks;
  std::chrono::steady_clock::time_point time;

  static Clocks Now() { return {__rdtsc(), std::chrono::steady_clock::now()}; }
  double TicksPerSecondSince(const Clocks& start) const {
    const std::chrono::duration<double> seconds = time - start.time;
    return static_cast<double>(ticks - start.ticks) / seconds.count();
  }
};

struct Round {
  double mean;  // in ticks
  double longest;
};

template <typename Session>
Round MeasureRound(Session* session, uint64_t* guarded) {
  uint64_t sum = 0;
  uint64_t longest = 0;
  for (int i = 0; i < kRoundTakings; ++i) {
    const uint64_t start = __rdtsc();
    session->Enter();
    const uint64_t waited = __rdtsc() - start;
    ++*guarded;
    session->Leave();
    sum += waited;
    longest = std::max(longest, waited);
  }
  return {static_cast<double>(sum) / kRoundTakings, static_cast<double>(longest)};
}

double Middle(std::vector<double>* values) {
  const auto middle = values->begin() + static_cast<std::ptrdiff_t>(values->size() / 2);
  std::nth_element(values->begin(), middle, values->end());
  return *middle;
}

void ReportWaits(benchmark::State& state, const std::vector<Round>& rounds, double ticksPerSecond) {
  std::vector<double> means;
  std::vector<double> ratios;
  for (const Round& round : rounds) {
    means.push_back(round.mean);
    ratios.push_back(round.longest / round.mean);
  }
  state.SetIterationTime(Middle(&means) / ticksPerSecond);
  state.counters["longest_to_mean"] = Middle(&ratios);
}

template <typename Lock>
void Wait(benchmark::State& state) {
  for (auto _ : state) {
    Lock lock;
    alignas(64) uint64_t guarded = 0;
    std::vector<Round> rounds[kThreads];
    const Clocks start = Clocks::Now();
    const auto body = [&](int number, Window* window) {
      ReadySession<Lock> session(&lock);
      window->Await();
      while (window->IsOpen()) rounds[number].push_back(MeasureRound(&session, &guarded));
      return rounds[number].size();
    };
    RunTogether(kThreads, body);
    const double ticksPerSecond = Clocks::Now().TicksPerSecondSince(start);
    rounds[0].insert(rounds[0].end(), rounds[1].begin(), rounds[1].end());
    ReportWaits(state, rounds[0], ticksPerSecond);
  }
}

void Once(benchmark::internal::Benchmark* benchmark) { benchmark->UseManualTime()->Iterations(1); }
BENCHMARK_TEMPLATE(Wait, Spinlock<kTickets>)->Apply(Once);
BENCHMARK_TEMPLATE(Wait, LightSpinlock<kTickets>)->Apply(Once);
BENCHMARK_TEMPLATE(Wait, Spinlock<kTestAndSet>)->Apply(Once);
BENCHMARK_TEMPLATE(Wait, LightSpinlock<kTestAndSet>)->Apply(Once);
BENCHMARK_TEMPLATE(Wait, RwLock)->Apply(Once);
BENCHMARK_TEMPLATE(Wait, StdMutex)->Apply(Once);
#define WAIT(Lock) BENCHMARK_TEMPLATE(Wait, Lock)->Apply(Once);
KIV_BENCH_PLATFORM_LOCKS(WAIT)

}  // namespace
