// The cost that the C++ layer adds to the C calls. Layer and C call take turns within one run.
#include <benchmark/benchmark.h>

#include <mutex>
#include <shared_mutex>

#include "kivsdu/kivsdu.hpp"

namespace {

constexpr char kSource[] = "bench/cpp_layer";

void LightweightSpinlockInC(benchmark::State& state) {
  KivSdLWSpinlock lock;
  KivSdLWSpinlockInit(&lock);
  for (auto _ : state) {
    KivSdLWSpinlockAcquire(&lock);
    KivSdLWSpinlockRelease(&lock);
  }
  KivSdLWSpinlockDestroy(&lock);
}
BENCHMARK(LightweightSpinlockInC);

void LightweightSpinlockInCpp(benchmark::State& state) {
  kivsdu::LightweightSpinlock lock;
  for (auto _ : state) std::lock_guard guard(lock);
}
BENCHMARK(LightweightSpinlockInCpp);

void ReaderInC(benchmark::State& state) {
  KivRWLock lock;
  KivRWLockTable table = {};
  KivRWLockInit(nullptr, 0, &lock, 1, 0);
  for (auto _ : state) {
    if (KivSdStartRead(nullptr, &table, &lock) != KIV_ST_OK) state.SkipWithError("no memory");
    KivSdEndRW(nullptr, &table, &lock);
  }
  KivRWLockFreeQNodes(&table);
}
BENCHMARK(ReaderInC);

void ReaderInCpp(benchmark::State& state) {
  kivsdu::ReaderWriterLock lock;
  kivsdu::LockTable table;
  const auto mine = lock.With(table);
  for (auto _ : state) std::shared_lock guard(mine);
}
BENCHMARK(ReaderInCpp);

void BlockInC(benchmark::State& state) {
  for (auto _ : state) {
    void* block = nullptr;
    if (adMalloc(nullptr, 64, &block, kSource, 1) != KIV_ST_OK) state.SkipWithError("no memory");
    benchmark::DoNotOptimize(block);
    adFree(block, kSource, 2);
  }
}
BENCHMARK(BlockInC);

void BlockInCpp(benchmark::State& state) {
  kivsdu::ThreadHeapResource heap;
  std::pmr::memory_resource* resource = &heap;
  benchmark::DoNotOptimize(resource);  // called as a container calls it
  for (auto _ : state) {
    void* block = resource->allocate(64, 8);
    benchmark::DoNotOptimize(block);
    resource->deallocate(block, 64, 8);
  }
}
BENCHMARK(BlockInCpp);

void SemaphoreInC(benchmark::State& state) {
  KivHandle semaphore = nullptr;
  KivSdContext ctx = {};
  KivSdCntSemCreate(&ctx, nullptr, 0, 1, &semaphore);
  for (auto _ : state) {
    if (KivSdCntSemClear(&ctx, &semaphore, 1, nullptr) != KIV_ST_OK) {
      state.SkipWithError("not released");
    }
    benchmark::DoNotOptimize(KivSdCntSemRequest(&ctx, &semaphore, 0) == KIV_ST_OK);
  }
  KivSdCntSemClose(&ctx, &semaphore);
}
BENCHMARK(SemaphoreInC);

void SemaphoreInCpp(benchmark::State& state) {
  kivsdu::Semaphore semaphore(nullptr, 0, 1);
  for (auto _ : state) {
    semaphore.release();
    benchmark::DoNotOptimize(semaphore.try_acquire());
  }
}
BENCHMARK(SemaphoreInCpp);

}  // namespace
