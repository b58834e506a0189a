// The cost that simple operations add to the raw call. Operation and raw call take turns within one
// run, which spreads the machine's noise over both.
#include <benchmark/benchmark.h>

#include <cstdlib>

#include "kivsdu/kivsdu.h"
#include "raw.h"

namespace {

namespace raw = kiv::bench::raw;

constexpr char kSource[] = "bench/frame";

void RawMalloc(benchmark::State& state) {
  const auto size = static_cast<uint32_t>(state.range(0));
  for (auto _ : state) {
    void* block = std::malloc(size);
    benchmark::DoNotOptimize(block);
    std::free(block);
  }
}
BENCHMARK(RawMalloc)->Arg(64);

void MemAlloc(benchmark::State& state) {
  const auto size = static_cast<uint32_t>(state.range(0));
  KivSdContext ctx = {};
  for (auto _ : state) {
    void* block = nullptr;
    KivSdMemAlloc(&ctx, 0, size, &block, kSource, __LINE__);
    benchmark::DoNotOptimize(block);
    KivSdMemFree(&ctx, block, kSource, __LINE__);
  }
}
BENCHMARK(MemAlloc)->Arg(64);

void MemStackPush(benchmark::State& state) {
  KivSdMemStack* stack = nullptr;
  KivSdMemStackCreate(nullptr, &stack, 8, 1 << 20);
  KivSdContext ctx = {};
  int pushed = 0;
  for (auto _ : state) {
    void* piece = nullptr;
    KivSdMemStackAllocAndPush(&ctx, stack, 32, &piece);
    benchmark::DoNotOptimize(piece);
    if (++pushed == 30000) {
      KivSdMemStackReset(&ctx, stack);
      pushed = 0;
    }
  }
  KivSdMemStackDelete(nullptr, stack);
}
BENCHMARK(MemStackPush);

void RawThreadSlot(benchmark::State& state) {
  const raw::ThreadSlot slot;
  for (auto _ : state) benchmark::DoNotOptimize(slot.Read());
}
BENCHMARK(RawThreadSlot);

void VorUtilTlsGet(benchmark::State& state) {
  KivSdVorUtilTlsInit();
  for (auto _ : state) benchmark::DoNotOptimize(KivSdVorUtilTlsGet());
  KivSdVorUtilTlsTerm();
}
BENCHMARK(VorUtilTlsGet);

void RawTickCount(benchmark::State& state) {
  for (auto _ : state) benchmark::DoNotOptimize(raw::TickCount());
}
BENCHMARK(RawTickCount);

void TimeElapsedOS(benchmark::State& state) {
  KivSdContext ctx = {};
  uint64_t seconds = 0;
  for (auto _ : state) {
    KivSdTimeElapsedOS(&ctx, &seconds);
    benchmark::DoNotOptimize(seconds);
  }
}
BENCHMARK(TimeElapsedOS);

void RawCounter(benchmark::State& state) {
  for (auto _ : state) benchmark::DoNotOptimize(raw::Counter());
}
BENCHMARK(RawCounter);

void FastTimer(benchmark::State& state) {
  uint32_t microseconds = 0;
  for (auto _ : state) {
    KivSdGetFastTimer(nullptr, &microseconds);
    benchmark::DoNotOptimize(microseconds);
  }
}
BENCHMARK(FastTimer);

void PageSize(benchmark::State& state) {
  KivSdContext ctx = {};
  uint32_t sizeBytes = 0;
  for (auto _ : state) {
    KivSdPageSizeGet(&ctx, &sizeBytes);
    benchmark::DoNotOptimize(sizeBytes);
  }
}
BENCHMARK(PageSize);

}  // namespace
