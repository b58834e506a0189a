// The cost that operations on kernel objects, threads, pipes and modules add to the raw call.
// Operation and raw call take turns within one run, which spreads the machine's noise over both.
#include <benchmark/benchmark.h>

#include "kivsdu/kivsdu.h"
#include "raw.h"

namespace {

namespace raw = kiv::bench::raw;

// Runs `operation` once for each iteration.
template <typename Operation>
void Repeat(benchmark::State& state, Operation operation) {
  for (auto _ : state) {
    operation();
    benchmark::ClobberMemory();
  }
}

void SemaphoreRaw(benchmark::State& state) {
  raw::Semaphore semaphore;
  Repeat(state, [&] {
    semaphore.Give();
    benchmark::DoNotOptimize(semaphore.Take());
  });
}
BENCHMARK(SemaphoreRaw);

void Semaphore(benchmark::State& state) {
  KivSdContext ctx = {};
  KivHandle semaphore = nullptr;
  KivSdCntSemCreate(&ctx, nullptr, 0, 10, &semaphore);
  Repeat(state, [&] {
    KivSdCntSemClear(&ctx, &semaphore, 1, nullptr);
    benchmark::DoNotOptimize(KivSdCntSemRequest(&ctx, &semaphore, KIV_WAIT_INFINITE));
  });
  KivSdCntSemClose(&ctx, &semaphore);
}
BENCHMARK(Semaphore);

void MutexRaw(benchmark::State& state) {
  raw::Mutex mutex;
  Repeat(state, [&] {
    benchmark::DoNotOptimize(mutex.Take());
    mutex.Give();
  });
}
BENCHMARK(MutexRaw);

void Mutex(benchmark::State& state) {
  KivSdContext ctx = {};
  KivHandle mutex = nullptr;
  KivSdMutexCreate(&ctx, nullptr, &mutex);
  Repeat(state, [&] {
    benchmark::DoNotOptimize(KivSdMutexRequest(&ctx, &mutex, KIV_WAIT_INFINITE));
    KivSdMutexClear(&ctx, &mutex);
  });
  KivSdMutexClose(&ctx, &mutex);
}
BENCHMARK(Mutex);

void EventRaw(benchmark::State& state) {
  raw::Event event;
  Repeat(state, [&] {
    event.Signal();
    benchmark::DoNotOptimize(event.Wait());
  });
}
BENCHMARK(EventRaw);

void GateEvent(benchmark::State& state) {
  KivSdContext ctx = {};
  KivHandle event = nullptr;
  KivSdEventCreate(&ctx, &event);
  Repeat(state, [&] {
    KivSdEventClear(&ctx, &event);
    benchmark::DoNotOptimize(KivSdEventWait(&ctx, &event, KIV_WAIT_INFINITE));
  });
  KivSdEventClose(&ctx, &event);
}
BENCHMARK(GateEvent);

void StandardEvent(benchmark::State& state) {
  KivSdContext ctx = {};
  KivHandle event = nullptr;
  KivSdStdEventCreate(&ctx, &event);
  Repeat(state, [&] {
    KivSdStdEventSet(&ctx, &event);
    benchmark::DoNotOptimize(KivSdStdEventWait(&ctx, &event));
  });
  KivSdStdEventClose(&ctx, &event);
}
BENCHMARK(StandardEvent);

void CriticalSectionRaw(benchmark::State& state) {
  raw::CriticalSection section;
  Repeat(state, [&] {
    section.Enter();
    section.Leave();
  });
}
BENCHMARK(CriticalSectionRaw);

void CriticalSection(benchmark::State& state) {
  KivSdContext ctx = {};
  KivSdCritSec section;
  KivSdCritSecInit(&ctx, &section);
  Repeat(state, [&] {
    KivSdCritSecEnter(&ctx, &section);
    KivSdCritSecExit(&ctx, &section);
  });
  KivSdCritSecDelete(&ctx, &section);
}
BENCHMARK(CriticalSection);

void ThreadIdRaw(benchmark::State& state) {
  Repeat(state, [] { benchmark::DoNotOptimize(raw::ThreadId()); });
}
BENCHMARK(ThreadIdRaw);

void ThreadId(benchmark::State& state) {
  KivSdContext ctx = {};
  uint32_t id = 0;
  Repeat(state, [&] { benchmark::DoNotOptimize(KivSdThreadIdGet(&ctx, &id)); });
}
BENCHMARK(ThreadId);

void YieldRaw(benchmark::State& state) {
  Repeat(state, [] { raw::YieldThread(); });
}
BENCHMARK(YieldRaw);

void ThreadYield(benchmark::State& state) {
  KivSdContext ctx = {};
  Repeat(state, [&] { KivSdThreadYield(&ctx); });
}
BENCHMARK(ThreadYield);

constexpr uint32_t kMessageBytes = 100;

void PipeRaw(benchmark::State& state) {
  raw::Pipe pipe;
  char message[kMessageBytes] = {};
  Repeat(state, [&] {
    pipe.Write(message, sizeof message);
    pipe.Read(message, sizeof message);
  });
}
BENCHMARK(PipeRaw);

void Pipe(benchmark::State& state) {
  KivSdContext ctx = {};
  KivHandle read = nullptr;
  KivHandle write = nullptr;
  KivSdPipeCreate(&ctx, &read, &write, 4096);
  char message[kMessageBytes] = {};
  uint32_t count = 0;
  Repeat(state, [&] {
    KivSdPipeWrite(&ctx, &write, message, sizeof message, &count);
    KivSdPipeRead(&ctx, &read, message, sizeof message, &count);
  });
  KivSdPipeClose(&ctx, &read);
  KivSdPipeClose(&ctx, &write);
}
BENCHMARK(Pipe);

void EntryPointRaw(benchmark::State& state) {
  void* library = raw::Library();
  Repeat(state, [=] { benchmark::DoNotOptimize(raw::FindEntry(library, "KivSdInit")); });
}
BENCHMARK(EntryPointRaw);

void EntryPoint(benchmark::State& state) {
  KivSdContext ctx = {};
  void* library = raw::Library();
  void* address = nullptr;
  Repeat(state, [&] { KivSdModuleProcAddrGet(&ctx, library, "KivSdInit", &address); });
}
BENCHMARK(EntryPoint);

}  // namespace
