// How the cost of allocation grows: with the live blocks, with the threads, and with the slots of the
// thread heaps. segments_bench shows how the cost of messages grows with their length, direct_bench
// that of transfers with their number in flight, and locks_contended_bench that of locks.
#include <cstdio>
#include <cstdlib>

#include "manager_allocators.h"
#include "workloads.h"

namespace {

using namespace kiv::bench;

constexpr size_t kLivePerThread = 1000;
constexpr int kThreadsOfSlots = 8;

template <typename Allocator>
void Threads(benchmark::State& state) {
  KeepWindow<Allocator>(state, kLivePerThread);
}

// A start after an end only forgets the earlier start; the next start makes new heaps. Those of the
// earlier start stay allocated.
void RestartHeaps(const benchmark::State& state) {
  constexpr int32_t kHeapsWereOn = -1;
  const bool ended = adMemThreadHeapTerm() == kHeapsWereOn;
  const bool forgotten = adMemThreadHeapInit(0, nullptr, "bench", 0) == KIV_ST_OK;
  if (ended && forgotten && StartHeaps(state.range(0))) return;
  std::fputs("The thread heaps could not be started again.\n", stderr);
  std::exit(1);
}

template <typename Allocator>
void RegisterLive(int64_t most) {
  benchmark::RegisterBenchmark(NameOf<Allocator>("live").c_str(), RandomWindow<Allocator>)
      ->RangeMultiplier(10)
      ->Range(1000, most);
}

template <typename Allocator>
void RegisterScaling() {
  RegisterLive<Allocator>(10'000'000);
  benchmark::RegisterBenchmark(NameOf<Allocator>("threads").c_str(), Threads<Allocator>)
      ->ThreadRange(1, 64)
      ->UseRealTime();
}

void RegisterSlots() {
  benchmark::RegisterBenchmark(NameOf<ThreadHeap>("slots").c_str(), Threads<ThreadHeap>)
      ->Setup(RestartHeaps)
      ->RangeMultiplier(2)
      ->Range(4, 64)
      ->Threads(kThreadsOfSlots)
      ->UseRealTime();
}

}  // namespace

int main(int argc, char** argv) {
  if (!StartHeaps()) {
    std::fputs("The memory manager could not be started.\n", stderr);
    return 1;
  }
  RegisterScaling<ThreadHeap>();
  RegisterLive<ShortHeap>(100'000);
  RegisterScaling<Runtime>();
#define REGISTER_SCALING(Peer) RegisterScaling<Peer>();
  KIV_BENCH_PEERS(REGISTER_SCALING)
#undef REGISTER_SCALING
  RegisterSlots();
  benchmark::Initialize(&argc, argv);
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  return 0;
}
