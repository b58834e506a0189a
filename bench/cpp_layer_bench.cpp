// The cost that the C++ layer adds to the C calls. Layer and C call take turns within one run.
#include <benchmark/benchmark.h>

#include <chrono>
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

constexpr uint32_t kMessageBytes = 100;

void PipeInC(benchmark::State& state) {
  KivSdContext ctx = {};
  KivHandle readEnd = nullptr;
  KivHandle writeEnd = nullptr;
  KivSdPipeCreate(&ctx, &readEnd, &writeEnd, 0);
  char message[kMessageBytes] = {};
  uint32_t count = 0;
  for (auto _ : state) {
    if (KivSdPipeWrite(&ctx, &writeEnd, message, kMessageBytes, &count) != KIV_ST_OK ||
        KivSdPipeRead(&ctx, &readEnd, message, kMessageBytes, &count) != KIV_ST_OK) {
      state.SkipWithError("not transferred");
    }
  }
  KivSdPipeClose(&ctx, &writeEnd);
  KivSdPipeClose(&ctx, &readEnd);
}
BENCHMARK(PipeInC);

void PipeInCpp(benchmark::State& state) {
  kivsdu::Pipe pipe;
  char message[kMessageBytes] = {};
  for (auto _ : state) {
    pipe.writeEnd.Write(message, kMessageBytes);
    benchmark::DoNotOptimize(pipe.readEnd.Read(message, kMessageBytes));
  }
}
BENCHMARK(PipeInCpp);

// Both ends of a segment in one thread, where no wait is long.
constexpr auto kPeerLimit = std::chrono::seconds(10);

void SegmentInC(benchmark::State& state) {
  kivsdu::Segment server("cpp-layer-bench-c", 1, kPeerLimit);
  kivsdu::Segment client("cpp-layer-bench-c", 0, kPeerLimit);
  char message[kMessageBytes] = {};
  for (auto _ : state) {
    if (KivWriteSharedMemChunk(nullptr, server.Get(), 0, kMessageBytes, 1, 1, message) !=
            KIV_ST_OK ||
        KivReadSharedMemChunk(nullptr, client.Get(), 0, kMessageBytes, 0, nullptr, message) !=
            KIV_ST_OK) {
      state.SkipWithError("not transferred");
    }
  }
}
BENCHMARK(SegmentInC);

void SegmentInCpp(benchmark::State& state) {
  kivsdu::Segment server("cpp-layer-bench-cpp", 1, kPeerLimit);
  kivsdu::Segment client("cpp-layer-bench-cpp", 0, kPeerLimit);
  auto writer = kivsdu::Chunk::Of(server, 0);
  auto reader = kivsdu::Chunk::Of(client, 0);
  char message[kMessageBytes] = {};
  for (auto _ : state) {
    writer.Write(message, kMessageBytes);
    benchmark::DoNotOptimize(reader.Read(message, kMessageBytes));
  }
}
BENCHMARK(SegmentInCpp);

}  // namespace
