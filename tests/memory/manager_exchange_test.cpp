// Heaps that run dry are first exchanged for spare heaps. Then new heaps are made until the budget
// is used up, then other slots serve, and at last requests become large blocks.
//
// The tests use blocks of the largest size that heaps serve: 7 of them fill a heap. A block's
// header shows its heap; a heap shows its slot and its neighbours in the ring.
#include <gtest/gtest.h>

#include <algorithm>
#include <string>

#include "support/manager.h"

namespace {

using namespace kiv::test;

constexpr int kBlocksPerHeap = 7;
constexpr uint64_t kSpares = 8;

// Blocks of the largest size.
using Blocks = std::vector<void*>;

class Filler {
 public:
  ~Filler() {
    for (void* block : blocks_) Free(block);
  }

  // Fills the heap of a slot, which must be empty, and returns it.
  char* FillHeap(uint64_t slot = 0) {
    char* heap = Take(slot);
    for (int i = 1; i < kBlocksPerHeap; ++i) EXPECT_EQ(Take(slot), heap);
    return heap;
  }

  // Allocates a block and returns its heap.
  char* Take(uint64_t slot = 0) {
    blocks_.push_back(Allocate(kLargestInHeap, SeedOfSlot(slot)));
    return HeapOf(blocks_.back());
  }

  // Frees the first block of a heap and returns its address.
  void* GiveBack(const char* heap) {
    const auto block = std::find_if(blocks_.begin(), blocks_.end(), [heap](void* candidate) {
      return !IsLarge(candidate) && HeapOf(candidate) == heap;
    });
    EXPECT_NE(block, blocks_.end());
    void* address = *block;
    Free(address);
    blocks_.erase(block);
    return address;
  }

  void* last() const { return blocks_.back(); }
  size_t size() const { return blocks_.size(); }

 private:
  Blocks blocks_;
};

std::vector<char*> Ring(char* head) {
  std::vector<char*> heaps;
  char* heap = head;
  do {
    heaps.push_back(heap);
    EXPECT_EQ(PreviousInRing(NextInRing(heap)), heap);
    EXPECT_EQ(IndexOf(heap), kSpareIndex);
    heap = NextInRing(heap);
  } while (heap != head && heaps.size() < 100);
  return heaps;
}

TEST(Exchange, WalksRoundTheSpareRing) {
  ASSERT_EQ(Restart(kSmall), KIV_ST_OK);
  Filler filler;
  std::vector<char*> used;
  used.push_back(filler.FillHeap());
  for (uint64_t i = 0; i < kSpares; ++i) {
    char* dry = used.back();
    EXPECT_EQ(IndexOf(dry), 0u);
    char* next = i == 0 ? nullptr : NextInRing(used[i - 1]);
    char* heap = filler.Take();
    if (i != 0) {
      EXPECT_EQ(heap, next) << "the heap after the one that was exchanged last";
    }
    EXPECT_EQ(std::count(used.begin(), used.end(), heap), 0);
    EXPECT_EQ(IndexOf(heap), 0u);
    EXPECT_EQ(IndexOf(dry), kSpareIndex);
    // The dry heap took the spare heap's place in the ring.
    EXPECT_EQ(Ring(dry).size(), kSpares);
    if (i != 0) {
      EXPECT_EQ(PreviousInRing(dry), used[i - 1]);
    }
    for (int block = 1; block < kBlocksPerHeap; ++block) EXPECT_EQ(filler.Take(), heap);
    used.push_back(heap);
  }
  // The ring holds the heaps that were used before, in order.
  used.pop_back();
  EXPECT_EQ(Ring(used[0]), used);
  EXPECT_EQ(TotalsNow().inHeaps, kFirstHeaps * kHeapBytes);
  EXPECT_EQ(TotalsNow().outside, 0u);
}

TEST(Exchange, TakesASpareHeapThatHasRoomAgain) {
  ASSERT_EQ(Restart(kSmall), KIV_ST_OK);
  Filler filler;
  std::vector<char*> used;
  for (uint64_t i = 0; i <= kSpares; ++i) used.push_back(filler.FillHeap());
  // All spare heaps are full. A block of the fourth is freed, and later one of the second.
  void* freed = filler.GiveBack(used[3]);
  char* dry = used[8];
  EXPECT_EQ(filler.Take(), used[3]);
  EXPECT_EQ(filler.last(), freed);
  EXPECT_EQ(IndexOf(used[3]), 0u);
  EXPECT_EQ(Ring(used[4]), (std::vector<char*>{used[4], used[5], used[6], used[7], used[0], used[1],
                                               used[2], dry}));

  // The walk starts after the place of the last exchange.
  freed = filler.GiveBack(used[2]);
  void* sooner = filler.GiveBack(used[6]);
  EXPECT_EQ(filler.Take(), used[6]);
  EXPECT_EQ(filler.last(), sooner);
  EXPECT_EQ(filler.Take(), used[2]);
  EXPECT_EQ(filler.last(), freed);
  EXPECT_EQ(Ring(dry), (std::vector<char*>{dry, used[4], used[5], used[3], used[7], used[0],
                                           used[1], used[6]}));
}

// The spare heap's free blocks are too small: it is tried and keeps its place in the ring.
TEST(Exchange, SkipsASpareHeapThatCannotServe) {
  ASSERT_EQ(Restart(kSmall), KIV_ST_OK);
  void* little = Allocate(24);
  Filler filler;
  std::vector<char*> used;
  for (uint64_t i = 0; i <= kSpares; ++i) used.push_back(filler.FillHeap());
  ASSERT_EQ(HeapOf(little), used[0]);
  Free(little);
  void* freed = filler.GiveBack(used[1]);
  EXPECT_EQ(filler.Take(), used[1]);
  EXPECT_EQ(filler.last(), freed);
  EXPECT_EQ(IndexOf(used[0]), kSpareIndex);
  EXPECT_EQ(Ring(used[0])[1], used[8]);
}

TEST(Exchange, MakesHeapsUntilTheBudgetIsUsedUp) {
  ASSERT_EQ(Restart("numheaps 14 numthreadheaps 4 heapsize 512K"), KIV_ST_OK);
  EXPECT_EQ(SettingsNow()[2], 14u);
  Filler filler;
  std::vector<char*> used;
  for (uint64_t i = 0; i <= kSpares; ++i) used.push_back(filler.FillHeap());
  EXPECT_EQ(TotalsNow().inHeaps, 12 * kHeapBytes);
  for (uint64_t made = 13; made <= 14; ++made) {
    char* dry = used.back();
    char* heap = filler.FillHeap();
    EXPECT_EQ(std::count(used.begin(), used.end(), heap), 0);
    EXPECT_EQ(IndexOf(heap), 0u);
    EXPECT_EQ(TotalsNow(),
              (Totals{0, made * kHeapBytes, 0, made * kHeapBytes, 0, made * kHeapBytes}));
    // The dry heap is at the tail of the ring, before the head.
    EXPECT_EQ(Ring(used[0]), used);
    EXPECT_EQ(PreviousInRing(used[0]), dry);
    used.push_back(heap);
  }
  // The budget is used up: another slot serves.
  filler.Take();
  EXPECT_EQ(SlotOf(filler.last()), 1u);
  EXPECT_EQ(IndexOf(used.back()), 0u) << "the dry heap keeps its slot";
  EXPECT_EQ(TotalsNow().inHeaps, 14 * kHeapBytes);
}

TEST(Exchange, TriesOtherSlotsInOrderAndThenMakesLargeBlocks) {
  ASSERT_EQ(Restart(kSmall), KIV_ST_OK);
  Filler filler;
  for (uint64_t i = 0; i <= kSpares; ++i) filler.FillHeap(2);
  for (const uint32_t slot : {0u, 1u, 3u}) {
    for (int i = 0; i < kBlocksPerHeap; ++i) {
      filler.Take(2);
      EXPECT_EQ(SlotOf(filler.last()), slot);
    }
  }
  EXPECT_EQ(TotalsNow().outside, 0u);
  for (uint64_t i = 1; i <= 3; ++i) {
    void* large = Allocate(kLargestInHeap, SeedOfSlot(2));
    ExpectLarge(large, kLargestInHeap);
    EXPECT_EQ(TotalsNow().outside, i * (kLargestInHeap + 32));
    EXPECT_EQ(TotalsNow().inHeaps, kFirstHeaps * kHeapBytes);
  }
  // The size of a large block is not rounded.
  void* odd = Allocate(kLargestInHeap - 3, SeedOfSlot(1));
  ExpectLarge(odd, kLargestInHeap - 3);
  Free(odd);
  EXPECT_EQ(TotalsNow().outside, 3 * (kLargestInHeap + 32));
}

// Heaps that have room again serve again, the slot's own heap first.
TEST(Exchange, AHeapThatKeptItsSlotServesAgainWhenItHasRoom) {
  ASSERT_EQ(Restart(kSmall), KIV_ST_OK);
  Filler filler;
  char* own = nullptr;
  for (uint64_t i = 0; i <= kSpares; ++i) own = filler.FillHeap();
  char* other = filler.Take();
  ASSERT_EQ(IndexOf(other), 1u);
  void* freed = filler.GiveBack(own);
  EXPECT_EQ(filler.Take(), own);
  EXPECT_EQ(filler.last(), freed);
  EXPECT_EQ(filler.Take(), other);
}

// Without memory for a new heap the other slots serve, and no message is sent.
TEST(Exchange, AtTheLimitContinuesWithoutANewHeap) {
  ASSERT_EQ(Restart("numheaps 64 numthreadheaps 4 heapsize 800K memorylimit 10M"), KIV_ST_OK);
  constexpr int kPerHeap = 12;
  const uint64_t heaps = kFirstHeaps * 800 * 1024;
  Free(Allocate(1));
  Listen();
  std::vector<void*> blocks;
  for (int i = 0; i < 12 * kPerHeap; ++i) {
    blocks.push_back(Allocate(kLargestInHeap));
    ASSERT_FALSE(IsLarge(blocks.back())) << i;
    EXPECT_EQ(SlotOf(blocks.back()) == 0, i < 9 * kPerHeap) << i;
  }
  // A refused heap is not counted.
  EXPECT_EQ(TotalsNow().used(), heaps);
  EXPECT_EQ(TotalsNow().inHeaps, heaps);
  EXPECT_EQ(TakeMessages(), std::vector<Message>{});
  // Large blocks use up the rest of the limit; then a message is sent.
  uint64_t large = 0;
  void* block = nullptr;
  while (adMalloc(SeedOfSlot(0), kLargestInHeap, &block, "tests", 1) == KIV_ST_OK) {
    ExpectLarge(block, kLargestInHeap);
    blocks.push_back(block);
    ++large;
  }
  EXPECT_EQ(large, (10485760 - heaps) / (kLargestInHeap + 32));
  EXPECT_EQ(block, nullptr);
  const std::vector<Message> messages = TakeMessages();
  ASSERT_FALSE(messages.empty());
  EXPECT_EQ(messages.back(), Refused(TotalsNow().used() + kLargestInHeap, kLargestInHeap));
  for (void* used : blocks) Free(used);
  EXPECT_EQ(TotalsNow().used(), heaps);
  // Heaps still serve small requests.
  Free(Allocate(kLargestInHeap));
}

// Two slots that run dry in turn share the ring.
TEST(Exchange, SlotsShareTheSpareHeaps) {
  ASSERT_EQ(Restart(kSmall), KIV_ST_OK);
  Filler filler;
  std::vector<char*> used;
  for (uint64_t i = 0; i < kSlots; ++i) used.push_back(filler.FillHeap(i));
  for (uint64_t i = 0; i < kSpares; ++i) {
    char* heap = filler.FillHeap(i % kSlots);
    EXPECT_EQ(IndexOf(heap), i % kSlots);
    EXPECT_EQ(IndexOf(used[i]), kSpareIndex);
    EXPECT_EQ(std::count(used.begin(), used.end(), heap), 0);
    used.push_back(heap);
  }
  used.resize(kSpares);
  EXPECT_EQ(Ring(used[0]), used);
  // A request is served by the only heap that has room.
  void* freed = filler.GiveBack(used[5]);
  EXPECT_EQ(filler.Take(3), used[5]);
  EXPECT_EQ(filler.last(), freed);
  EXPECT_EQ(IndexOf(used[5]), 3u);
}

}  // namespace
