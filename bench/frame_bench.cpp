// The cost that simple operations add to the raw call. Operation and raw call take turns within one
// run, which spreads the machine's noise over both.
#include <benchmark/benchmark.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <vector>

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

// ---- A function that does the least that an operation must do, called as from another module ----

struct Bump {
  char* next;
};

void* TakeFrom(Bump* bump, uint32_t sizeBytes) {
  char* const piece = bump->next;
  bump->next += sizeBytes;
  return piece;
}
void* (*volatile takeFrom)(Bump*, uint32_t) = &TakeFrom;

uint32_t ReadError(const KivSdContext* ctx, uint32_t* error) {
  *error = ctx->osError;
  return 0;
}
uint32_t (*volatile readError)(const KivSdContext*, uint32_t*) = &ReadError;

// ---- Memory stack ----

constexpr uint32_t kPieceBytes = 48;
constexpr int kPiecesPerReset = 20000;

void MemStackPushRaw(benchmark::State& state) {
  std::vector<char> memory(size_t{kPieceBytes} * kPiecesPerReset);
  Bump bump = {memory.data()};
  int pushed = 0;
  for (auto _ : state) {
    benchmark::DoNotOptimize(takeFrom(&bump, kPieceBytes));
    if (++pushed == kPiecesPerReset) {
      bump.next = memory.data();
      pushed = 0;
    }
  }
}
BENCHMARK(MemStackPushRaw);

void MemStackPush(benchmark::State& state) {
  KivSdMemStack* stack = nullptr;
  KivSdMemStackCreate(nullptr, &stack, 8, 1 << 20);
  KivSdContext ctx = {};
  int pushed = 0;
  for (auto _ : state) {
    void* piece = nullptr;
    KivSdMemStackAllocAndPush(&ctx, stack, kPieceBytes, &piece);
    benchmark::DoNotOptimize(piece);
    if (++pushed == kPiecesPerReset) {
      KivSdMemStackReset(&ctx, stack);
      pushed = 0;
    }
  }
  KivSdMemStackDelete(nullptr, stack);
}
BENCHMARK(MemStackPush);

// ---- Contexts ----

void LastErrRaw(benchmark::State& state) {
  const KivSdContext ctx = {};
  uint32_t error = 0;
  for (auto _ : state) benchmark::DoNotOptimize(readError(&ctx, &error));
}
BENCHMARK(LastErrRaw);

void LastErr(benchmark::State& state) {
  KivSdContext ctx = {};
  uint32_t error = 0;
  for (auto _ : state) benchmark::DoNotOptimize(KivSdLastErrGet(&ctx, 0, nullptr, &error));
}
BENCHMARK(LastErr);

void InitTermRaw(benchmark::State& state) {
  for (auto _ : state) {
    void* block = std::calloc(1, sizeof(KivSdContext));
    benchmark::DoNotOptimize(block);
    std::free(block);
  }
}
BENCHMARK(InitTermRaw);

void InitTerm(benchmark::State& state) {
  for (auto _ : state) {
    KivSdContext* ctx = nullptr;
    KivSdInit(&ctx);
    benchmark::DoNotOptimize(ctx);
    KivSdTerm(ctx);
  }
}
BENCHMARK(InitTerm);

// ---- Copying and clearing ----

void MemCopyRaw(benchmark::State& state) {
  const auto sizeBytes = static_cast<size_t>(state.range(0));
  std::vector<char> from(sizeBytes);
  std::vector<char> to(sizeBytes);
  for (auto _ : state) {
    std::memmove(to.data(), from.data(), sizeBytes);
    benchmark::ClobberMemory();
  }
}
BENCHMARK(MemCopyRaw)->Arg(64)->Arg(4096);

void MemCopy(benchmark::State& state) {
  const auto sizeBytes = static_cast<uint32_t>(state.range(0));
  std::vector<char> from(sizeBytes);
  std::vector<char> to(sizeBytes);
  for (auto _ : state) {
    KivSdMemCopy(nullptr, to.data(), from.data(), sizeBytes);
    benchmark::ClobberMemory();
  }
}
BENCHMARK(MemCopy)->Arg(64)->Arg(4096);

void MemClearRaw(benchmark::State& state) {
  const auto sizeBytes = static_cast<size_t>(state.range(0));
  std::vector<char> block(sizeBytes);
  for (auto _ : state) {
    raw::Clear(block.data(), sizeBytes);
    benchmark::ClobberMemory();
  }
}
BENCHMARK(MemClearRaw)->Arg(64)->Arg(4096)->Arg(65536);

void MemClear(benchmark::State& state) {
  const auto sizeBytes = static_cast<uint32_t>(state.range(0));
  std::vector<char> block(sizeBytes);
  KivSdContext ctx = {};
  for (auto _ : state) {
    KivSdMemClear(&ctx, block.data(), sizeBytes);
    benchmark::ClobberMemory();
  }
}
BENCHMARK(MemClear)->Arg(64)->Arg(4096)->Arg(65536);

// ---- Threads' storage, and time ----

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
