// Compares heaps with their model: random operations run on both, and after each operation their
// results, rings, lists and the content of used blocks must be equal.
//
// A failure names arena, seed and operation. To repeat or extend a run:
//   KIV_HEAP_SEED=n        uses seed n for every arena
//   KIV_HEAP_OPERATIONS=n  runs n operations in each arena
//   KIV_HEAP_WALK=n        walks the whole arena only after every n-th operation
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <random>
#include <string>
#include <vector>

#include "support/checked_heap.h"

namespace {

using kiv::test::CheckedHeap;
using kiv::test::HeapModel;

constexpr uint32_t kOperations = 1000000;  // of each arena
constexpr uint32_t kBallastBlocks = 2;
constexpr uint32_t kSmallArena = 32768;  // all its blocks are read after each operation
constexpr uint32_t kHeaderBytes = HeapModel::kHeaderBytes;

uint32_t Setting(const char* name, uint32_t otherwise) {
  const char* const value = std::getenv(name);
  return value == nullptr ? otherwise : static_cast<uint32_t>(std::strtoul(value, nullptr, 10));
}

// Relative frequency of each kind of request.
struct Mix {
  uint32_t quick;     // up to 168 bytes: quick lists, and the first size beyond them
  uint32_t small;     // up to 1,000
  uint32_t boundary;  // near the smallest block of a bin
  uint32_t large;     // up to an eighth of the arena
  uint32_t fitting;   // a free block's size, or up to 56 bytes less
  uint32_t hopeless;  // more than the arena has

  uint32_t Total() const { return quick + small + boundary + large + fitting + hopeless; }
};

struct Shape {
  const char* name;
  uint32_t seed;
  uint32_t arenaBytes;
  uint32_t spareBytes;  // of the arena that no ballast takes
  Mix mix;
};

class RandomRun {
 public:
  RandomRun(const Shape& shape, uint32_t seed)
      : shape_(shape), random_(seed), heap_(shape.arenaBytes), phaseLeft_(0), allocating_(50) {
    heap_.SetPace({.walkAfterEach = std::max(1u, Setting("KIV_HEAP_WALK", 1)),
                   .readAfterEach = shape.arenaBytes < kSmallArena ? 1u : 100u});
    // The first block of a small arena is in the last bin. A larger request must not reach it while
    // it is whole.
    Allocate(shape.spareBytes / 4);
    // Ballast leaves little room, so that the heap fills sooner and is walked faster.
    const uint32_t ballastBytes = shape.arenaBytes - shape.spareBytes;
    if (ballastBytes == 0) return;
    for (uint32_t i = 0; i < kBallastBlocks; ++i) {
      ballast_.push_back(heap_.Allocate(ballastBytes / kBallastBlocks));
    }
  }

  void Step() {
    if (phaseLeft_-- == 0) StartPhase();
    const uint32_t choice = Below(1000);
    if (choice == 0) {
      last_ = "consolidate";
      heap_.Consolidate();
    } else if (choice < 3) {
      FreeNeighbours();
    } else if (choice < 200) {
      Reallocate();
    } else if (Below(100) < allocating_) {
      Allocate(RandomSize());
    } else {
      Free(RandomIndex());
    }
  }

  // Frees everything; one free block must remain.
  void Finish() {
    while (!live_.empty() && Agrees()) Free(live_.size() - 1);
    for (const uint32_t block : ballast_) heap_.Free(block);
    heap_.Consolidate();
    heap_.CheckEverything();
    if (Agrees()) {
      EXPECT_EQ(heap_.model().blocks().size(), 1u);
    }
  }

  bool Agrees() const { return heap_.fault().empty(); }
  std::string Fault() const { return heap_.fault() + " after " + last_; }
  CheckedHeap& heap() { return heap_; }

 private:
  uint32_t Below(uint32_t bound) { return static_cast<uint32_t>(random_() % bound); }

  // Chooses whether the arena fills, stays as full as it is, or empties.
  void StartPhase() {
    const uint32_t shares[] = {85, 60, 50, 40, 15};
    allocating_ = shares[Below(5)];
    phaseLeft_ = 1 + Below(2000);
  }

  uint32_t RandomSize() {
    const Mix& mix = shape_.mix;
    uint32_t kind = Below(mix.Total());
    if (kind < mix.quick) return Below(169);
    kind -= mix.quick;
    if (kind < mix.small) return Below(1001);
    kind -= mix.small;
    if (kind < mix.boundary) return BoundarySize();
    kind -= mix.boundary;
    if (kind < mix.large) return Below(shape_.arenaBytes / 8);
    kind -= mix.large;
    if (kind < mix.fitting) return FittingSize();
    return shape_.arenaBytes + Below(100);
  }

  uint32_t BoundarySize() {
    const uint32_t most = HeapModel::BinOf(shape_.arenaBytes / 4);
    const uint32_t bin = 1 + Below(most);
    const uint32_t least = bin <= 16 ? bin * 128 : (bin - 15) * 2048;
    return least - kHeaderBytes - 20 + Below(40);
  }

  // Returns a request that takes a free block exactly, leaves a rest too small to split off, or
  // leaves the smallest rest that is split off.
  uint32_t FittingSize() {
    const uint32_t from = Below(HeapModel::kBinCount);
    for (uint32_t i = 0; i < HeapModel::kBinCount; ++i) {
      const HeapModel::Offsets& ring = heap_.model().bin((from + i) % HeapModel::kBinCount);
      if (ring.empty()) continue;
      const uint32_t capacity = heap_.model().CapacityOf(ring[Below(Count(ring))]);
      return capacity - std::min(capacity, Below(57));
    }
    return 0;
  }

  static uint32_t Count(const std::vector<uint32_t>& offsets) {
    return static_cast<uint32_t>(offsets.size());
  }

  // Chooses any block, often one of the newest.
  size_t RandomIndex() {
    const uint32_t count = Count(live_);
    if (count == 0) return 0;
    return Below(4) == 0 ? count - 1 - Below(std::min(count, 4u)) : Below(count);
  }

  void Allocate(uint32_t sizeBytes) {
    last_ = "allocate " + std::to_string(sizeBytes);
    const uint32_t block = heap_.Allocate(sizeBytes);
    if (block != HeapModel::kNoBlock) live_.push_back(block);
  }

  void Free(size_t index) {
    if (live_.empty()) return;
    const uint32_t block = live_[index];
    last_ = "free " + std::to_string(block);
    live_.erase(live_.begin() + static_cast<std::ptrdiff_t>(index));
    heap_.Free(block);
  }

  // Frees a run of adjacent used blocks.
  void FreeNeighbours() {
    if (live_.empty()) return;
    const HeapModel::Blocks& blocks = heap_.model().blocks();
    uint32_t block = live_[RandomIndex()];
    for (uint32_t i = Below(6) + 2; i > 0 && Agrees(); --i) {
      const auto found = std::find(live_.begin(), live_.end(), block);
      if (found == live_.end()) return;
      const auto next = std::next(blocks.find(block));
      const uint32_t nextOffset = next == blocks.end() ? HeapModel::kNoBlock : next->first;
      Free(static_cast<size_t>(found - live_.begin()));
      block = nextOffset;
    }
  }

  void Reallocate() {
    if (live_.empty()) return;
    const size_t index = RandomIndex();
    const uint32_t block = live_[index];
    const uint32_t sizeBytes = NewSize(heap_.model().CapacityOf(block));
    last_ = "reallocate " + std::to_string(block) + " to " + std::to_string(sizeBytes);
    const uint32_t moved = heap_.Reallocate(block, sizeBytes);
    if (moved != HeapModel::kNoBlock) live_[index] = moved;
  }

  // Chooses a new size: slightly smaller, so that the tail is just too small or just large enough
  // to split off; slightly larger; a fraction; or any size.
  uint32_t NewSize(uint32_t oldSize) {
    switch (Below(4)) {
      case 0:
        return oldSize - std::min(oldSize, Below(80));
      case 1:
        return oldSize + Below(80);
      case 2:
        return Below(oldSize + 1);
      default:
        return RandomSize();
    }
  }

  const Shape& shape_;
  std::mt19937 random_;
  CheckedHeap heap_;
  std::vector<uint32_t> live_;
  std::vector<uint32_t> ballast_;  // used during the whole test
  uint32_t phaseLeft_;
  uint32_t allocating_;  // allocations in 100 operations
  std::string last_;
};

class HeapAgainstModel : public testing::TestWithParam<Shape> {};

TEST_P(HeapAgainstModel, PlacesEveryBlockLikeTheModel) {
  const Shape& shape = GetParam();
  const uint32_t seed = Setting("KIV_HEAP_SEED", shape.seed);
  const uint32_t operations = Setting("KIV_HEAP_OPERATIONS", kOperations);
  RandomRun run(shape, seed);
  for (uint32_t i = 0; i < operations; ++i) {
    run.Step();
    ASSERT_TRUE(run.Agrees()) << shape.name << ", seed " << seed << ", operation " << i << ": "
                              << run.Fault();
  }
  run.Finish();
  ASSERT_TRUE(run.Agrees()) << shape.name << ", seed " << seed << ", at the end: " << run.Fault();
}

constexpr uint32_t kKiB = 1024;

//                                            quick small boundary large fitting hopeless
const Shape kShapes[] = {
    {"Tiny", 1, 5 * kKiB, 5 * kKiB, {50, 20, 5, 5, 20, 1}},
    {"TinyOddSize", 2, 9 * kKiB + 5, 9 * kKiB + 5, {70, 10, 5, 1, 14, 1}},
    {"ShortHeap", 3, 320 * kKiB, 320 * kKiB, {10, 20, 20, 20, 30, 1}},
    {"ShortHeapAlmostFull", 4, 320 * kKiB, 30 * kKiB, {75, 20, 2, 1, 3, 0}},
    {"ThreadHeap", 5, 512 * kKiB, 512 * kKiB, {5, 10, 30, 25, 30, 1}},
    {"ThreadHeapOddSize", 6, 512 * kKiB + 7, 100 * kKiB, {20, 50, 10, 10, 10, 1}},
};

INSTANTIATE_TEST_SUITE_P(Arenas, HeapAgainstModel, testing::ValuesIn(kShapes),
                         [](const auto& run) { return std::string(run.param.name); });

}  // namespace
