// The workloads of the allocators. All times are per block: its allocation and its free.
#ifndef KIV_BENCH_WORKLOADS_H
#define KIV_BENCH_WORKLOADS_H

#include <benchmark/benchmark.h>

#include <array>
#include <atomic>
#include <cstdint>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "allocators.h"
#include "peer_allocators.h"

namespace kiv::bench {

// ---- Sizes ----

constexpr size_t kDraws = 1 << 16;

// Random sizes of 16 to 528 bytes, small ones more often; 99 on average. Drawn beforehand and equal
// for all allocators.
inline const std::array<uint32_t, kDraws> kSizes = [] {
  std::array<uint32_t, kDraws> sizes;
  std::mt19937 random(1);  // NOLINT(cert-msc32-c,cert-msc51-cpp)
  for (uint32_t& size : sizes) {
    const uint32_t range = 16U << (random() % 6);
    size = 16 + static_cast<uint32_t>(random()) % range;
  }
  return sizes;
}();

inline uint32_t SizeOf(size_t draw) { return kSizes[draw % kDraws]; }

// xorshift: G. Marsaglia, "Xorshift RNGs", 2003.
class Random {
 public:
  explicit Random(uint64_t seed) : state_(seed * 0x9E3779B97F4A7C15 + 1) {}

  uint64_t Next() {
    state_ ^= state_ << 13;
    state_ ^= state_ >> 7;
    state_ ^= state_ << 17;
    return state_;
  }

  // Returns a number below `bound`, which must be below 2^32.
  uint64_t Below(uint64_t bound) { return ((Next() >> 32) * bound) >> 32; }

 private:
  uint64_t state_;
};

template <typename Allocator>
void* AllocateWritten(Allocator* allocator, uint32_t sizeBytes) {
  auto* block = static_cast<uint64_t*>(allocator->Allocate(sizeBytes));
  *block = sizeBytes;
  return block;
}

// ---- Workloads ----

template <typename Allocator>
void SamePairs(benchmark::State& state) {
  const auto sizeBytes = static_cast<uint32_t>(state.range(0));
  Allocator allocator;
  for (auto _ : state) {
    void* block = allocator.Allocate(sizeBytes);
    benchmark::DoNotOptimize(block);
    allocator.Free(block);
  }
}

// Keeps `live` blocks. Each step frees a random one and allocates another of a random size.
template <typename Allocator>
void KeepWindow(benchmark::State& state, size_t live) {
  Allocator allocator;
  std::vector<void*> blocks(live);
  size_t draw = 0;
  for (void*& block : blocks) block = AllocateWritten(&allocator, SizeOf(draw++));
  Random random(1);
  for (auto _ : state) {
    void*& block = blocks[random.Below(blocks.size())];
    allocator.Free(block);
    block = AllocateWritten(&allocator, SizeOf(draw++));
  }
  for (void* block : blocks) allocator.Free(block);
}

template <typename Allocator>
void RandomWindow(benchmark::State& state) {
  KeepWindow<Allocator>(state, static_cast<size_t>(state.range(0)));
}

template <typename Allocator>
void Drop(Allocator* allocator, const std::vector<void*>& blocks) {
  if constexpr (requires { allocator->DropAll(); }) {
    allocator->DropAll();
  } else {
    for (void* block : blocks) allocator->Free(block);
  }
}

// A request allocates range(0) blocks and drops all of them when it ends.
template <typename Allocator>
void Request(benchmark::State& state) {
  Allocator allocator;
  std::vector<void*> blocks(static_cast<size_t>(state.range(0)));
  size_t draw = 0;
  while (state.KeepRunningBatch(state.range(0))) {
    for (void*& block : blocks) block = AllocateWritten(&allocator, SizeOf(draw++));
    Drop(&allocator, blocks);
  }
}

constexpr size_t kBatchBlocks = 256;
using Batch = std::array<void*, kBatchBlocks>;

// Allocates a batch of blocks of one size, then frees it in the order of the allocations.
template <typename Allocator>
void BatchOfOneSize(benchmark::State& state) {
  const auto sizeBytes = static_cast<uint32_t>(state.range(0));
  Allocator allocator;
  Batch batch;
  while (state.KeepRunningBatch(kBatchBlocks)) {
    for (void*& block : batch) block = AllocateWritten(&allocator, sizeBytes);
    for (void* block : batch) allocator.Free(block);
  }
}

// Threads leave batches of blocks here for each other.

template <typename Allocator>
class Exchange {
 public:
  static constexpr size_t kPlaces = 16;

  // Leaves a batch and returns the one that was there, usually another thread's; null if none was.
  Batch* Swap(size_t place, Batch* batch) { return places_[place % kPlaces].batch.exchange(batch); }

 private:
  struct alignas(64) Place {
    std::atomic<Batch*> batch;
  };
  std::array<Place, kPlaces> places_;
};

template <typename Allocator>
void FreeBatch(Allocator* allocator, Batch* batch) {
  if (batch == nullptr) return;
  for (void* block : *batch) allocator->Free(block);
  delete batch;
}

// A thread frees the blocks that it finds, which usually another thread allocated.
template <typename Allocator>
void CrossThread(benchmark::State& state) {
  static Exchange<Allocator> exchange;
  Allocator allocator;
  Random random(static_cast<uint64_t>(state.thread_index()) + 1);
  auto* batch = new Batch;
  for (void*& block : *batch) block = AllocateWritten(&allocator, SizeOf(random.Next()));
  while (state.KeepRunningBatch(kBatchBlocks)) {
    const uint64_t draw = random.Next();
    Batch* other = exchange.Swap(draw >> 32, batch);
    batch = other != nullptr ? other : new Batch{};
    for (size_t i = 0; i < kBatchBlocks; ++i) {
      void*& block = (*batch)[i];
      if (block != nullptr) allocator.Free(block);
      block = AllocateWritten(&allocator, SizeOf(draw + i));
    }
  }
  FreeBatch(&allocator, batch);
  if (state.thread_index() != 0) return;
  for (size_t i = 0; i < exchange.kPlaces; ++i) FreeBatch(&allocator, exchange.Swap(i, nullptr));
}

// Hands blocks from one thread to one other thread in their order. A thread that finds the ring full
// or empty lets others run.
class Ring {
 public:
  void Put(void* block) {
    const size_t at = put_.load(std::memory_order_relaxed);
    while (at - taken_.load(std::memory_order_acquire) == kPlaces) std::this_thread::yield();
    blocks_[at % kPlaces] = block;
    put_.store(at + 1, std::memory_order_release);
  }

  void* Take() {
    const size_t at = taken_.load(std::memory_order_relaxed);
    while (at == put_.load(std::memory_order_acquire)) std::this_thread::yield();
    void* block = blocks_[at % kPlaces];
    taken_.store(at + 1, std::memory_order_release);
    return block;
  }

 private:
  static constexpr size_t kPlaces = 1024;

  alignas(64) std::atomic<size_t> put_;
  alignas(64) std::atomic<size_t> taken_;
  alignas(64) std::array<void*, kPlaces> blocks_;
};

// One thread allocates blocks, another one frees them.
template <typename Allocator>
void ProducerAndConsumer(benchmark::State& state) {
  static Ring ring;
  Allocator allocator;
  size_t draw = 0;
  if (state.thread_index() == 0) {
    for (auto _ : state) ring.Put(AllocateWritten(&allocator, SizeOf(draw++)));
  } else {
    for (auto _ : state) allocator.Free(ring.Take());
  }
}

// The next size of a block that grows.
constexpr uint32_t AddQuarter(uint32_t sizeBytes) { return sizeBytes + sizeBytes / 4; }
constexpr uint32_t AddHalf(uint32_t sizeBytes) { return sizeBytes + sizeBytes / 2; }
constexpr uint32_t Add64(uint32_t sizeBytes) { return sizeBytes + 64; }

// A block that grows in steps. A neighbour keeps it from growing in place at first.
template <typename Allocator, uint32_t (*kNextSize)(uint32_t)>
void Growth(benchmark::State& state) {
  constexpr uint32_t kFirstBytes = 32;
  const auto lastBytes = static_cast<uint32_t>(state.range(0));
  Allocator allocator;
  for (auto _ : state) {
    void* block = AllocateWritten(&allocator, kFirstBytes);
    void* neighbour = AllocateWritten(&allocator, kFirstBytes);
    for (uint32_t size = kFirstBytes; size < lastBytes; size = kNextSize(size)) {
      block = allocator.Resize(block, kNextSize(size));
    }
    benchmark::DoNotOptimize(block);
    allocator.Free(block);
    allocator.Free(neighbour);
  }
}

// ---- Registration ----

template <typename Allocator>
std::string NameOf(const char* workload) {
  return std::string(workload) + "/" + Allocator::kName;
}

template <typename Allocator>
void RegisterPairs() {
  benchmark::RegisterBenchmark(NameOf<Allocator>("pair").c_str(), SamePairs<Allocator>)
      ->RangeMultiplier(4)
      ->Range(16, 64 << 10);
}

// Blocks that many allocators take from the system one by one.
template <typename Allocator>
void RegisterLarge() {
  benchmark::RegisterBenchmark(NameOf<Allocator>("large").c_str(), SamePairs<Allocator>)
      ->RangeMultiplier(4)
      ->Range(256 << 10, 4 << 20);
}

template <typename Allocator>
void RegisterBatches() {
  benchmark::RegisterBenchmark(NameOf<Allocator>("batch").c_str(), BatchOfOneSize<Allocator>)
      ->Arg(64);
}

template <typename Allocator>
void RegisterWindows() {
  benchmark::RegisterBenchmark(NameOf<Allocator>("window").c_str(), RandomWindow<Allocator>)
      ->Arg(1000)
      ->Arg(100000)
      ->Arg(1000000);
}

template <typename Allocator>
void RegisterRequests() {
  benchmark::RegisterBenchmark(NameOf<Allocator>("request").c_str(), Request<Allocator>)
      ->Arg(200)
      ->Arg(1000)
      ->Arg(5000);
}

template <typename Allocator>
void RegisterThreads() {
  benchmark::RegisterBenchmark(NameOf<Allocator>("cross-thread").c_str(), CrossThread<Allocator>)
      ->ThreadRange(1, 4)
      ->UseRealTime();
}

template <typename Allocator>
void RegisterProducers() {
  benchmark::RegisterBenchmark(NameOf<Allocator>("producer").c_str(),
                               ProducerAndConsumer<Allocator>)
      ->Threads(2)
      ->UseRealTime();
}

template <typename Allocator>
void RegisterGrowth() {
  benchmark::RegisterBenchmark(NameOf<Allocator>("growth").c_str(), Growth<Allocator, AddQuarter>)
      ->Arg(1024)
      ->Arg(48 << 10);
  benchmark::RegisterBenchmark(NameOf<Allocator>("growth-half").c_str(), Growth<Allocator, AddHalf>)
      ->Arg(48 << 10);
  benchmark::RegisterBenchmark(NameOf<Allocator>("growth-64").c_str(), Growth<Allocator, Add64>)
      ->Arg(8 << 10);
}

template <typename Allocator>
void RegisterAll() {
  RegisterPairs<Allocator>();
  RegisterLarge<Allocator>();
  RegisterBatches<Allocator>();
  RegisterWindows<Allocator>();
  RegisterRequests<Allocator>();
  RegisterThreads<Allocator>();
  RegisterProducers<Allocator>();
  RegisterGrowth<Allocator>();
}

inline void RegisterOthers() {
  RegisterAll<Runtime>();
#define REGISTER_ALL(Peer) RegisterAll<Peer>();
#define REGISTER_REQUESTS(Peer) RegisterRequests<Peer>();
  KIV_BENCH_PEERS(REGISTER_ALL)
  KIV_BENCH_DROPPING_PEERS(REGISTER_REQUESTS)
#undef REGISTER_ALL
#undef REGISTER_REQUESTS
  RegisterPairs<LockedList>();
}

inline int Run(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  RegisterOthers();
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  return 0;
}

}  // namespace kiv::bench

#endif
