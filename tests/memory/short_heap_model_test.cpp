// Compares an owner of several short heaps with its model: every block must come from the heap, and
// lie at the offset, that the model says.
#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <vector>

#include "model/heap_model.h"
#include "support/manager.h"

namespace {

using namespace kiv::test;

constexpr uint32_t kHeaderBytes = HeapModel::kHeaderBytes;
constexpr auto kArenaBytes = static_cast<uint32_t>(kShortHeapBytes);

// A heap in the order of creation, and an offset in it.
struct Place {
  size_t heap;
  uint32_t offset;

  bool operator==(const Place&) const = default;
};

// The newest heap is tried first, then the others from the oldest on. A new heap is made only if all
// have failed.
class ModelOwner {
 public:
  ModelOwner() { heaps_.emplace_back(kArenaBytes); }

  Place Allocate(uint32_t sizeBytes) {
    const size_t newest = heaps_.size() - 1;
    if (const uint32_t offset = heaps_[newest].Allocate(sizeBytes); offset != 0) {
      return {newest, offset};
    }
    for (size_t i = 0; i < newest; ++i) {
      if (const uint32_t offset = heaps_[i].Allocate(sizeBytes); offset != 0) return {i, offset};
    }
    heaps_.emplace_back(kArenaBytes);
    return {newest + 1, heaps_.back().Allocate(sizeBytes)};
  }

  void Free(const Place& place) { heaps_[place.heap].Free(place.offset); }

  size_t Count() const { return heaps_.size(); }

 private:
  std::vector<HeapModel> heaps_;
};

struct LiveBlock {
  void* payload;
  Place place;
};

class Comparison {
 public:
  Comparison() { adMemShortHeapInit(&owner_); }
  ~Comparison() { adMemShortHeapTerm(&owner_); }
  Comparison(const Comparison&) = delete;
  Comparison& operator=(const Comparison&) = delete;

  void Allocate(uint32_t sizeBytes) {
    const Place expected = model_.Allocate(sizeBytes);
    void* payload = nullptr;
    const auto size = static_cast<int32_t>(sizeBytes);
    ASSERT_EQ(adMemShortHeapMalloc(&owner_, size, &payload, "tests", 1), KIV_ST_OK);
    const Place place = PlaceOf(static_cast<char*>(payload));
    ASSERT_EQ(place.heap, expected.heap) << "the heap of " << sizeBytes << " bytes";
    ASSERT_EQ(place.offset, expected.offset) << "the offset of " << sizeBytes << " bytes";
    live_.push_back({payload, place});
  }

  void Free(size_t index) {
    const LiveBlock block = live_[index];
    live_[index] = live_.back();
    live_.pop_back();
    model_.Free(block.place);
    ASSERT_EQ(adFree(block.payload, "tests", 1), KIV_ST_OK);
  }

  size_t LiveCount() const { return live_.size(); }
  size_t HeapCount() const { return model_.Count(); }

 private:
  Place PlaceOf(char* payload) {
    char* const heap = ReadAt<char*>(payload - kHeaderBytes, 8);
    const auto found = std::find(heaps_.begin(), heaps_.end(), heap);
    const auto index = static_cast<size_t>(found - heaps_.begin());
    if (found == heaps_.end()) heaps_.push_back(heap);
    return {index, static_cast<uint32_t>(payload - kHeaderBytes - heap)};
  }

  AdShortHeapOwner owner_ = {};
  ModelOwner model_;
  std::vector<char*> heaps_;
  std::vector<LiveBlock> live_;
};

class Draws {
 public:
  size_t Below(size_t bound) { return random_() % bound; }

  // Small sizes are frequent. The largest do not leave room for five in a heap.
  uint32_t Size() { return 1 + static_cast<uint32_t>(Below(size_t{16} << Below(13))); }

 private:
  std::mt19937 random_{1};  // NOLINT(cert-msc32-c,cert-msc51-cpp)
};

TEST(ShortHeapModel, AWindowOfLiveBlocksIsPlacedAsTheModelSays) {
  constexpr size_t kLive = 1000;
  constexpr int kSteps = 20000;
  ASSERT_EQ(Restart(kSmall), KIV_ST_OK);
  Comparison comparison;
  Draws draws;
  while (comparison.LiveCount() < kLive) ASSERT_NO_FATAL_FAILURE(comparison.Allocate(draws.Size()));
  for (int i = 0; i < kSteps; ++i) {
    ASSERT_NO_FATAL_FAILURE(comparison.Free(draws.Below(kLive))) << "step " << i;
    ASSERT_NO_FATAL_FAILURE(comparison.Allocate(draws.Size())) << "step " << i;
  }
  EXPECT_GT(comparison.HeapCount(), 8u) << "too few heaps for a walk through them";
}

}  // namespace
