// Contended locks: the time per operation of all threads together, within a fixed time. Each thread
// enters, works on the guarded data, leaves, and does some work of its own.
#include <string>

#include "contention.h"
#include "lock_contenders.h"

namespace {

using namespace kiv::bench;

// Prints the spin budget in the output's header, because waiting times depend on it.
[[maybe_unused]] const bool kBudgetIsTold = [] {
  KivSyncEnvInit();
  benchmark::AddCustomContext("spin_budget", std::to_string(KIV_SDSYNC_BUSYSPIN_UPPERLIMIT));
  return true;
}();

// The guarded data: a cache line of counters. Readers sum them, writers increment them.
struct alignas(64) Guarded {
  uint64_t words[8] = {};

  void Change() {
    for (uint64_t& word : words) ++word;
  }
  void Look() const {
    uint64_t sum = 0;
    for (const uint64_t word : words) sum += word;
    benchmark::DoNotOptimize(sum);
  }
};

// Work that needs no lock and touches no shared cache line.
void WorkAlone(int64_t rounds) {
  uint64_t value = 1;
  for (int64_t i = 0; i < rounds; ++i) benchmark::DoNotOptimize(value = value * 3 + 1);
}

// Arguments: threads, rounds of work outside the lock.
template <typename Lock>
void Contended(benchmark::State& state) {
  const auto threads = static_cast<int>(state.range(0));
  const int64_t rounds = state.range(1);
  for (auto _ : state) {
    Lock lock;
    Guarded guarded;
    const auto body = [&](int, Window* window) {
      ReadySession<Lock> session(&lock);
      uint64_t operations = 0;
      for (window->Await(); window->IsOpen(); ++operations) {
        Write(&session, [&] { guarded.Change(); });
        WorkAlone(rounds);
      }
      return operations;
    };
    Report(state, RunTogether(threads, body));
  }
}

// Arguments: threads, period; one operation in each period writes, the others read. With a period
// of 0 all read.
template <typename Lock>
void ReadMostly(benchmark::State& state) {
  const auto threads = static_cast<int>(state.range(0));
  const auto period = static_cast<uint64_t>(state.range(1));
  for (auto _ : state) {
    Lock lock;
    Guarded guarded;
    const auto body = [&](int number, Window* window) {
      ReadySession<Lock> session(&lock);
      const auto own = static_cast<uint64_t>(number) * period / static_cast<uint64_t>(threads);
      uint64_t operations = 0;
      for (window->Await(); window->IsOpen(); ++operations) {
        if (period != 0 && operations % period == own) {
          Write(&session, [&] { guarded.Change(); });
        } else {
          Read(&session, [&] { guarded.Look(); });
        }
      }
      return operations;
    };
    Report(state, RunTogether(threads, body));
  }
}

// The lower bound of a lock whose owner changes with every operation, as in a contended first-come
// lock: two threads pass a word to and fro, alone or with the guarded data.
enum What { kTurn, kTurnAndGuarded };
template <What kWhat>
void HandOver(benchmark::State& state) {
  for (auto _ : state) {
    alignas(64) std::atomic<uint64_t> turn{0};
    Guarded guarded;
    const auto body = [&](int number, Window* window) {
      uint64_t operations = 0;
      window->Await();
      while (window->IsOpen()) {
        const uint64_t seen = turn.load(std::memory_order_acquire);
        if (seen % 2 != static_cast<uint64_t>(number)) continue;
        if (kWhat == kTurnAndGuarded) guarded.Change();
        turn.store(seen + 1, std::memory_order_release);
        ++operations;
      }
      return operations;
    };
    Report(state, RunTogether(2, body));
  }
}
BENCHMARK_TEMPLATE(HandOver, kTurn)->UseManualTime()->Iterations(1);
BENCHMARK_TEMPLATE(HandOver, kTurnAndGuarded)->UseManualTime()->Iterations(1);

// The lower bound of a lock whose waiters sleep: two threads wake each other.
void HandOverInKernel(benchmark::State& state) {
  for (auto _ : state) {
    raw::Semaphore semaphores[2];
    semaphores[0].Give();
    const auto body = [&](int number, Window* window) {
      uint64_t operations = 0;
      window->Await();
      for (; window->IsOpen(); ++operations) {
        semaphores[number].Take();
        semaphores[1 - number].Give();
      }
      semaphores[1 - number].Give();  // the other may still wait
      return operations;
    };
    Report(state, RunTogether(2, body));
  }
}
BENCHMARK(HandOverInKernel)->UseManualTime()->Iterations(1);

// The lower bound of sharing one cache line: each operation is one locked instruction.
void SharedAddition(benchmark::State& state) {
  const auto threads = static_cast<int>(state.range(0));
  for (auto _ : state) {
    alignas(64) std::atomic<uint64_t> word{0};
    const auto body = [&](int, Window* window) {
      uint64_t operations = 0;
      for (window->Await(); window->IsOpen(); ++operations) word.fetch_add(1);
      return operations;
    };
    Report(state, RunTogether(threads, body));
  }
}
BENCHMARK(SharedAddition)->Arg(2)->Arg(4)->UseManualTime()->Iterations(1);

constexpr int64_t kNoWork = 0;
constexpr int64_t kSomeWork = 200;

void Contentions(benchmark::internal::Benchmark* benchmark) {
  benchmark->ArgNames({"threads", "work"})->UseManualTime()->Iterations(1);
  for (const int64_t threads : {2, 4}) {
    for (const int64_t work : {kNoWork, kSomeWork}) benchmark->Args({threads, work});
  }
}
BENCHMARK_TEMPLATE(Contended, Spinlock<kTestAndSet>)->Apply(Contentions);
BENCHMARK_TEMPLATE(Contended, Spinlock<kTickets>)->Apply(Contentions);
BENCHMARK_TEMPLATE(Contended, LightSpinlock<kTestAndSet>)->Apply(Contentions);
BENCHMARK_TEMPLATE(Contended, LightSpinlock<kTickets>)->Apply(Contentions);
BENCHMARK_TEMPLATE(Contended, RwLock)->Apply(Contentions);
BENCHMARK_TEMPLATE(Contended, SleeplessRwLock)->Apply(Contentions);
BENCHMARK_TEMPLATE(Contended, StdMutex)->Apply(Contentions);
#define CONTENDED(Lock) BENCHMARK_TEMPLATE(Contended, Lock)->Apply(Contentions);
KIV_BENCH_PLATFORM_LOCKS(CONTENDED)

void Mixes(benchmark::internal::Benchmark* benchmark) {
  benchmark->ArgNames({"threads", "one_write_in"})->UseManualTime()->Iterations(1);
  for (const int64_t threads : {2, 4}) {
    for (const int64_t period : {0, 10, 100}) benchmark->Args({threads, period});
  }
}
BENCHMARK_TEMPLATE(ReadMostly, RwLock)->Apply(Mixes);
BENCHMARK_TEMPLATE(ReadMostly, SleeplessRwLock)->Apply(Mixes);
BENCHMARK_TEMPLATE(ReadMostly, Spinlock<kTestAndSet>)->Apply(Mixes);
BENCHMARK_TEMPLATE(ReadMostly, Spinlock<kTickets>)->Apply(Mixes);
BENCHMARK_TEMPLATE(ReadMostly, StdMutex)->Apply(Mixes);
#define READ_MOSTLY(Lock) BENCHMARK_TEMPLATE(ReadMostly, Lock)->Apply(Mixes);
KIV_BENCH_PLATFORM_LOCKS(READ_MOSTLY)

}  // namespace
