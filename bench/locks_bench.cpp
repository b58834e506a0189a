// Uncontended locks: one entry and exit, compared with the platform's locks and with the locked
// instructions alone.
#include <benchmark/benchmark.h>

#include "lock_contenders.h"
#include "lock_limits.h"

namespace {

using namespace kiv::bench;

template <typename Limit>
void LockedInstructions(benchmark::State& state) {
  Limit limit;
  for (auto _ : state) {
    limit.EnterAndLeave();
    benchmark::ClobberMemory();
  }
}
// Contenders of the workloads below.
BENCHMARK_TEMPLATE(LockedInstructions, WordLimit)->Name("Alone<WordLimit>");
BENCHMARK_TEMPLATE(LockedInstructions, TicketLimit)->Name("Alone<TicketLimit>");
BENCHMARK_TEMPLATE(LockedInstructions, WriteLimit)->Name("Alone<WriteLimit>");
BENCHMARK_TEMPLATE(LockedInstructions, ReadLimit)->Name("ReadAlone<ReadLimit>");

// Two locked instructions, each in a function of the library.
void LockedInstructionsBehindCalls(benchmark::State& state) {
  alignas(64) int32_t word = 0;
  for (auto _ : state) {
    KivSdAtomicIncrement(&word);
    KivSdAtomicDecrement(&word);
  }
}
BENCHMARK(LockedInstructionsBehindCalls)->Name("Alone<WordLimit behind calls>");

template <typename Lock>
void Alone(benchmark::State& state) {
  Lock lock;
  typename Lock::Session session(&lock);
  for (auto _ : state) {
    session.Enter();
    session.Leave();
  }
}
BENCHMARK_TEMPLATE(Alone, Spinlock<kTestAndSet>);
BENCHMARK_TEMPLATE(Alone, Spinlock<kTickets>);
BENCHMARK_TEMPLATE(Alone, SpinlockOnce<kTickets>);
BENCHMARK_TEMPLATE(Alone, LightSpinlock<kTestAndSet>);
BENCHMARK_TEMPLATE(Alone, LightSpinlock<kTickets>);
BENCHMARK_TEMPLATE(Alone, RwLock);
BENCHMARK_TEMPLATE(Alone, StdMutex);
#define ALONE(Lock) BENCHMARK_TEMPLATE(Alone, Lock);
KIV_BENCH_PLATFORM_LOCKS(ALONE)

// A thread takes the lock three times and leaves it three times.
template <typename Lock>
void Nested(benchmark::State& state) {
  Lock lock;
  typename Lock::Session session(&lock);
  for (auto _ : state) {
    for (int depth = 0; depth < 3; ++depth) session.Enter();
    for (int depth = 0; depth < 3; ++depth) session.Leave();
  }
}
BENCHMARK_TEMPLATE(Nested, Spinlock<kTestAndSet>);
BENCHMARK_TEMPLATE(Nested, Spinlock<kTickets>);
BENCHMARK_TEMPLATE(Nested, LightSpinlock<kTestAndSet>);
BENCHMARK_TEMPLATE(Nested, LightSpinlock<kTickets>);
BENCHMARK_TEMPLATE(Nested, RecursiveMutex);
#define NESTED(Lock) BENCHMARK_TEMPLATE(Nested, Lock);
KIV_BENCH_PLATFORM_RECURSIVE_LOCKS(NESTED)

template <typename Lock>
void ReadAlone(benchmark::State& state) {
  Lock lock;
  typename Lock::Session session(&lock);
  for (auto _ : state) {
    session.EnterRead();
    session.LeaveRead();
  }
}
BENCHMARK_TEMPLATE(ReadAlone, RwLock);
#define READ_ALONE(Lock) BENCHMARK_TEMPLATE(ReadAlone, Lock);
KIV_BENCH_PLATFORM_READER_LOCKS(READ_ALONE)

}  // namespace
