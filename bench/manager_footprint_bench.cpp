// Memory that an allocator holds for each byte in use: the growth of the process's working set
// divided by the bytes requested and not yet freed. Each allocator has its own process, because it
// could reuse memory that another one left behind.
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "manager_allocators.h"
#include "own_process.h"
#include "workloads.h"

namespace kiv::bench {
namespace {

constexpr uint32_t kBlocks = 200000;
constexpr uint32_t kReplacements = 10 * kBlocks;

// A set of live blocks, and the memory held for them.
template <typename Allocator>
class Window {
 public:
  void Fill() {
    for (size_t i = 0; i < kBlocks; ++i) Replace(i);
  }

  // Replaces random blocks, ten times as many as are live.
  void Churn() {
    Random random(1);
    for (size_t i = 0; i < kReplacements; ++i) Replace(random.Below(kBlocks));
  }

  double HeldPerLiveByte() const {
    return static_cast<double>(WorkingSetBytes() - startBytes_) / static_cast<double>(liveBytes_);
  }

 private:
  struct Place {
    void* block;
    uint64_t sizeBytes;
  };

  void Replace(size_t index) {
    Place& place = places_[index];
    if (place.block != nullptr) allocator_.Free(place.block);
    liveBytes_ -= place.sizeBytes;
    const uint32_t sizeBytes = SizeOf(draw_++);
    place = {allocator_.Allocate(sizeBytes), sizeBytes};
    liveBytes_ += sizeBytes;
    std::memset(place.block, 1, sizeBytes);
  }

  Allocator allocator_;
  std::vector<Place> places_ = std::vector<Place>(kBlocks);
  size_t draw_ = 0;
  uint64_t liveBytes_ = 0;
  uint64_t startBytes_ = WorkingSetBytes();
};

template <typename Allocator>
int Measure() {
  Window<Allocator> window;
  window.Fill();
  const double filled = window.HeldPerLiveByte();
  window.Churn();
  std::printf("%-14s %6.2f %6.2f\n", Allocator::kName, filled, window.HeldPerLiveByte());
  return 0;
}

template <typename Allocator>
int MeasureInHeaps() {
  if (!StartHeaps()) {
    std::fputs("The memory manager could not be started.\n", stderr);
    return 1;
  }
  return Measure<Allocator>();
}

int MeasureCache() {
  KivSdSetMemoryManager(1);
  return Measure<ThreadCache>();
}

struct Contender {
  const char* argument;
  int (*measure)();
};

constexpr Contender kContenders[] = {{"thread-heap", MeasureInHeaps<ThreadHeap>},
                                     {"short-heap", MeasureInHeaps<ShortHeap>},
                                     {"thread-cache", MeasureCache},
                                     {"plain", Measure<Plain>},
                                     {"runtime", Measure<Runtime>},
#define PEER(Peer) {Peer::kName, Measure<Peer>},
                                     KIV_BENCH_PEERS(PEER)
#undef PEER
};

int MeasureAll() {
  std::printf(
      "Memory held per byte in use: %u blocks of 16 to 528 bytes, before and after %u\n"
      "of them were replaced\n",
      kBlocks, kReplacements);
  for (const Contender& contender : kContenders) {
    std::fflush(stdout);
    if (!RunItself(contender.argument)) return 1;
  }
  return 0;
}

}  // namespace
}  // namespace kiv::bench

// With an allocator's name, measures that allocator. Without arguments, measures all. Options of
// the other benchmarks are ignored.
int main(int argc, char** argv) {
  using namespace kiv::bench;
  if (argc != 2 || argv[1][0] == '-') return MeasureAll();
  for (const Contender& contender : kContenders) {
    if (std::strcmp(argv[1], contender.argument) == 0) return contender.measure();
  }
  std::fprintf(stderr, "There is no allocator '%s' here.\n", argv[1]);
  return 2;
}
