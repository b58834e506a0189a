// The allocation front in thread-heap mode: entry points, statuses, and placement of blocks.
#include <gtest/gtest.h>

#include <algorithm>
#include <set>
#include <string>
#include <thread>

#include "support/manager.h"
#include "support/process.h"
#include "support/waiting.h"

namespace {

using namespace kiv::test;

constexpr uint64_t kHeaps = kFirstHeaps * kHeapBytes;
void* const kUntouched = reinterpret_cast<void*>(0x5A5A);

// ---- Statuses ----

TEST(Front, ASizeOf0IsRefusedAndLeavesTheResultUnchanged) {
  ASSERT_EQ(Restart(kSmall), KIV_ST_OK);
  Listen();
  void* block = kUntouched;
  EXPECT_EQ(adMalloc(nullptr, 0, &block, "tests", 1), KIV_ST_ARGUMENT);
  EXPECT_EQ(adMallocPolicy(nullptr, 0, &block, AD_POLICY_FULL, "tests", 1), KIV_ST_ARGUMENT);
  EXPECT_EQ(adMallocAligned(nullptr, 16, 0, &block, "tests", 1), KIV_ST_ARGUMENT);
  EXPECT_EQ(adRealloc(nullptr, 0, nullptr, &block, "tests", 1), KIV_ST_ARGUMENT);
  void* old = Allocate(100);
  EXPECT_EQ(adRealloc(nullptr, 0, old, &block, "tests", 1), KIV_ST_ARGUMENT);
  EXPECT_EQ(PayloadBytes(old), 104u);
  uint64_t size = 77;
  EXPECT_EQ(adMallocOnNode(nullptr, 0, &size, &block), KIV_ST_ARGUMENT);
  EXPECT_EQ(size, 77u);
  EXPECT_EQ(block, kUntouched);
  Free(old);
  EXPECT_EQ(TakeMessages(), std::vector<Message>{});
}

TEST(Front, ElementsOfSize0AreRefusedAndReturnNull) {
  ASSERT_EQ(Restart(kSmall), KIV_ST_OK);
  void* block = kUntouched;
  EXPECT_EQ(adCalloc(nullptr, 0, 100, &block, AD_POLICY_FULL), KIV_ST_ARGUMENT);
  EXPECT_EQ(block, nullptr);
  block = kUntouched;
  EXPECT_EQ(adCalloc(nullptr, -1, 0, &block, AD_POLICY_FULL), KIV_ST_ARGUMENT);
  EXPECT_EQ(block, nullptr);
  EXPECT_EQ(adCalloc(nullptr, 1, 0, nullptr, AD_POLICY_FULL), KIV_ST_ARGUMENT);
}

TEST(Front, FreeingNullIsRefused) {
  ASSERT_EQ(Restart(kSmall), KIV_ST_OK);
  EXPECT_EQ(adFree(nullptr, "tests", 1), KIV_ST_ARGUMENT);
  EXPECT_EQ(adFreeAligned(nullptr, 0), KIV_ST_ARGUMENT);
  EXPECT_EQ(adFreeAligned(nullptr, 1), KIV_ST_ARGUMENT);
  EXPECT_EQ(adFreeOnNode(1, 2, nullptr), KIV_ST_ARGUMENT);
}

// ---- Headers ----

TEST(Front, HeapBlocksHaveTheirSizeAndHeapInTheirHeader) {
  ASSERT_EQ(Restart(kSmall), KIV_ST_OK);
  struct Case {
    uint64_t size;
    uint32_t block;
  };
  for (const Case& c : {Case{1, 48}, Case{23, 48}, Case{24, 48}, Case{25, 56}, Case{32, 56},
                        Case{160, 184}, Case{161, 192}, Case{65535, 65560}, Case{65536, 65560}}) {
    void* block = Allocate(c.size);
    EXPECT_EQ(WordBefore(block), 0u) << c.size;
    EXPECT_EQ(BlockBytes(block), c.block) << c.size;
    EXPECT_EQ(reinterpret_cast<uintptr_t>(block) % 8, 0u);
    char* heap = HeapOf(block);
    EXPECT_EQ(IndexOf(heap), 0u);
    EXPECT_EQ(ReadAt<uint32_t>(heap, 8), 6005u);
    EXPECT_GE(static_cast<char*>(block), heap + 504 + 24);
    EXPECT_LE(static_cast<char*>(block) + c.block - 24, heap + kHeapBytes);
    Fill(block, c.size, c.size);
    EXPECT_EQ(BlockBytes(block), c.block);
    Free(block);
  }
  EXPECT_EQ(TotalsNow().outside, 0u);
}

TEST(Front, AFreshHeapServesFromItsEndDownwards) {
  ASSERT_EQ(Restart(kSmall), KIV_ST_OK);
  char* first = static_cast<char*>(Allocate(1000));
  char* second = static_cast<char*>(Allocate(200));
  char* third = static_cast<char*>(Allocate(24));
  EXPECT_EQ(first, HeapOf(first) + kHeapBytes - 1000);
  EXPECT_EQ(second, first - 24 - 200);
  EXPECT_EQ(third, second - 24 - 24);
  EXPECT_EQ(ReadAt<uint32_t>(first, -20), 224u) << "size of the block before";
  EXPECT_EQ(ReadAt<uint32_t>(second, -20), 48u);
}

// The last bytes of such a heap are not used.
TEST(Front, AHeapMayHaveASizeThatIsNotAMultipleOf8) {
  ASSERT_EQ(Restart("numheaps 12 numthreadheaps 4 heapsize 524295"), KIV_ST_OK);
  EXPECT_EQ(TotalsNow().used(), kFirstHeaps * 524295);
  char* block = static_cast<char*>(Allocate(1000));
  EXPECT_EQ(block, HeapOf(block) + 524288 - 1000);
}

TEST(Front, RequestsAboveMaxblockAreLarge) {
  ASSERT_EQ(Restart(kSmall), KIV_ST_OK);
  for (const uint64_t size : {kLargestInHeap + 1, uint64_t{1'000'001}, uint64_t{32} << 20}) {
    void* block = Allocate(size);
    ExpectLarge(block, size);
    EXPECT_EQ(TotalsNow().outside, size + 32);
    Fill(block, size, 1);
    Free(block);
    EXPECT_EQ(TotalsNow().outside, 0u);
  }
  ASSERT_EQ(Restart(std::string(kSmall) + "maxblock 100"), KIV_ST_OK);
  EXPECT_FALSE(IsLarge(Allocate(100)));
  ExpectLarge(Allocate(101), 101);
}

TEST(Front, ASizeThatOverflowsWithItsHeaderIsOutOfMemory) {
  ASSERT_EQ(Restart(kSmall), KIV_ST_OK);
  const Totals before = TotalsNow();
  void* old = Allocate(100'000);
  for (uint64_t less = 0; less < 40; ++less) {
    void* block = kUntouched;
    EXPECT_EQ(adMalloc(nullptr, UINT64_MAX - less, &block, "tests", 1), KIV_ST_OUT_OF_MEMORY);
    EXPECT_EQ(block, nullptr);
    EXPECT_EQ(adRealloc(nullptr, UINT64_MAX - less, old, &block, "tests", 1), KIV_ST_OUT_OF_MEMORY);
    EXPECT_EQ(block, nullptr);
    EXPECT_EQ(adCalloc(nullptr, -1, 1, &block, AD_POLICY_FULL), KIV_ST_OUT_OF_MEMORY);
    EXPECT_EQ(block, nullptr);
  }
  ExpectLarge(old, 100'000);
  Free(old);
  EXPECT_EQ(TotalsNow().used(), before.used());
}

// ---- Seeds ----

std::vector<uint64_t> Primes() {
  std::vector<uint64_t> primes;
  for (uint64_t number = 1297; primes.size() < 50; ++number) {
    bool isPrime = true;
    for (uint64_t divisor = 2; divisor * divisor <= number; ++divisor) {
      isPrime = isPrime && number % divisor != 0;
    }
    if (isPrime) primes.push_back(number);
  }
  EXPECT_EQ(primes.back(), 1657u);
  return primes;
}

// Computes the expected slots, with a clock and primes of its own.
class Slots {
 public:
  uint64_t clock() const { return clock_; }

  uint64_t Of(uint64_t seed) const {
    return seed / 8 % primes_[clock_ / 10'000 % primes_.size()] % count_;
  }

  // Allocates a block and checks its slot.
  void* Allocate(uint64_t seed, uint64_t sizeBytes = 24) {
    const uint64_t slot = Of(seed);
    void* block = kiv::test::Allocate(sizeBytes, reinterpret_cast<void*>(seed));
    EXPECT_EQ(SlotOf(block), slot) << "seed " << seed << " at " << clock_;
    ++clock_;
    return block;
  }

  void Pass(uint64_t ticks) {
    for (uint64_t i = 0; i < ticks; ++i) Free(Allocate(8));
  }

  explicit Slots(uint64_t count) : count_(count) {}

 private:
  const std::vector<uint64_t> primes_ = Primes();
  const uint64_t count_;
  uint64_t clock_ = 0;
};

// The first seed distinguishes the primes: it is tested at the first and the last tick of each.
constexpr uint64_t kSeeds[] = {999'992,  8,        16,         24,         8 * 1296,
                               8 * 1297, 8 * 1298, 123'456,    0x7654323,  0xFFFFFFF,
                               1,        7,        UINT64_MAX, 0xFFFF00000};

TEST(Seeds, ChooseASlotByPrimesThatChangeEvery10000Allocations) {
  IN_FRESH_PROCESS([] {
    ASSERT_EQ(Initialize("numheaps 15 numthreadheaps 7 heapsize 512K"), KIV_ST_OK);
    Slots slots(7);
    for (uint64_t period = 0; period < 52; ++period) {
      for (const uint64_t seed : kSeeds) Free(slots.Allocate(seed));
      slots.Pass(9'999 - slots.clock() % 10'000);
      Free(slots.Allocate(kSeeds[0]));
      ASSERT_EQ(slots.clock() % 10'000, 0u);
    }
  });
}

TEST(Seeds, ReachAllOf64Slots) {
  ASSERT_EQ(Restart("numheaps 72 numthreadheaps 64 heapsize 512K"), KIV_ST_OK);
  EXPECT_EQ(SettingsNow()[1], 64u);
  std::set<char*> heaps;
  for (uint64_t slot = 0; slot < 64; ++slot) {
    void* block = Allocate(24, SeedOfSlot(slot));
    EXPECT_EQ(SlotOf(block), slot);
    heaps.insert(HeapOf(block));
  }
  EXPECT_EQ(heaps.size(), 64u);
  // If all other slots and the spare heaps are full, the last slot serves.
  for (int i = 0; i < 8 * 7; ++i) Allocate(kLargestInHeap, SeedOfSlot(0));
  for (uint64_t slot = 0; slot < 63; ++slot) {
    for (int i = 0; i < 7; ++i) EXPECT_NE(SlotOf(Allocate(kLargestInHeap, SeedOfSlot(slot))), 63u);
  }
  EXPECT_EQ(SlotOf(Allocate(kLargestInHeap, SeedOfSlot(0))), 63u);
}

TEST(Seeds, LargeBlocksDoNotAdvanceTheClock) {
  IN_FRESH_PROCESS([] {
    ASSERT_EQ(Initialize(kSmall), KIV_ST_OK);
    Slots slots(4);
    uint64_t seed = 8;  // a seed whose slot differs between the first two primes
    while (seed / 8 % 1297 % 4 == seed / 8 % 1301 % 4) seed += 8;
    slots.Pass(9'999);
    for (int i = 0; i < 10; ++i) Free(Allocate(kLargestInHeap + 1));
    Free(slots.Allocate(seed));
    Free(slots.Allocate(seed));
  });
}

TEST(Seeds, AreTheOwnerOrTheAddressOfTheResult) {
  IN_FRESH_PROCESS([] {
    ASSERT_EQ(Initialize(kSmall), KIV_ST_OK);
    const Slots slots(4);
    void* results[8] = {};
    for (uint64_t i = 0; i < 8; ++i) {
      const uint64_t here = slots.Of(reinterpret_cast<uint64_t>(&results[i]));
      void* owner = SeedOfSlot((here + 1) % 4);
      ASSERT_EQ(adMalloc(nullptr, 100, &results[i], "tests", 1), KIV_ST_OK);
      EXPECT_EQ(SlotOf(results[i]), here);
      ASSERT_EQ(adMalloc(owner, 100, &results[i], "tests", 1), KIV_ST_OK);
      EXPECT_EQ(SlotOf(results[i]), (here + 1) % 4);
      ASSERT_EQ(adMallocPolicy(nullptr, 100, &results[i], AD_POLICY_MANDATORY, "tests", 1),
                KIV_ST_OK);
      EXPECT_EQ(SlotOf(results[i]), here);
      EXPECT_EQ(PayloadBytes(results[i]), 104u);
      ASSERT_EQ(adMallocPolicy(owner, 100, &results[i], AD_POLICY_FULL, "tests", 1), KIV_ST_OK);
      EXPECT_EQ(SlotOf(results[i]), (here + 1) % 4);
      ASSERT_EQ(adMallocAligned(nullptr, 4096, 100, &results[i], "tests", 1), KIV_ST_OK);
      EXPECT_EQ(SlotOf(results[i]), here);
      ASSERT_EQ(adMallocAligned(owner, 3, 100, &results[i], "tests", 1), KIV_ST_OK);
      EXPECT_EQ(SlotOf(results[i]), (here + 1) % 4);
      ASSERT_EQ(adCalloc(nullptr, 10, 10, &results[i], AD_POLICY_FULL), KIV_ST_OK);
      EXPECT_EQ(SlotOf(results[i]), here);
      ASSERT_EQ(adCalloc(owner, 10, 10, &results[i], AD_POLICY_FULL), KIV_ST_OK);
      EXPECT_EQ(SlotOf(results[i]), (here + 1) % 4);
      ASSERT_EQ(adRealloc(nullptr, 100, nullptr, &results[i], "tests", 1), KIV_ST_OK);
      EXPECT_EQ(SlotOf(results[i]), here);
      ASSERT_EQ(adRealloc(owner, 100, nullptr, &results[i], "tests", 1), KIV_ST_OK);
      EXPECT_EQ(SlotOf(results[i]), (here + 1) % 4);
    }
  });
}

// A block that must move is placed by the owner or, without an owner, by its old address.
TEST(Seeds, OfAReallocationAreTheOwnerOrTheOldBlock) {
  IN_FRESH_PROCESS([] {
    ASSERT_EQ(Initialize(kSmall), KIV_ST_OK);
    const Slots slots(4);
    for (uint64_t i = 0; i < 8; ++i) {
      void* large = Allocate(100'000 + 8 * i);
      const uint64_t there = slots.Of(reinterpret_cast<uint64_t>(large));
      void* moved = nullptr;
      ASSERT_EQ(adRealloc(nullptr, 100, large, &moved, "tests", 1), KIV_ST_OK);
      EXPECT_EQ(SlotOf(moved), there);
      large = Allocate(100'000);
      ASSERT_EQ(adRealloc(SeedOfSlot(i % 4), 100, large, &moved, "tests", 1), KIV_ST_OK);
      EXPECT_EQ(SlotOf(moved), i % 4);
      // It stays in its own heap if that has room, whatever the owner.
      void* grown = nullptr;
      ASSERT_EQ(adRealloc(SeedOfSlot((i + 1) % 4), 5000, moved, &grown, "tests", 1), KIV_ST_OK);
      EXPECT_EQ(SlotOf(grown), i % 4);
    }
  });
}

// ---- Elements and texts ----

bool AllZero(const void* block, uint64_t sizeBytes) {
  const auto* bytes = static_cast<const unsigned char*>(block);
  return std::all_of(bytes, bytes + sizeBytes, [](unsigned char byte) { return byte == 0; });
}

TEST(Front, ElementsAreZero) {
  ASSERT_EQ(Restart(kSmall), KIV_ST_OK);
  for (const uint64_t size : {1u, 24u, 160u, 4000u, 100'000u}) {
    void* dirty = Allocate(size);
    Fill(dirty, size, 1);
    Free(dirty);
    void* block = nullptr;
    ASSERT_EQ(adCalloc(SeedOfSlot(0), 1, size, &block, AD_POLICY_FULL), KIV_ST_OK);
    if (!IsLarge(block)) {
      EXPECT_EQ(block, dirty);
    }
    EXPECT_TRUE(AllZero(block, size)) << size;
    Free(block);
    ASSERT_EQ(adCalloc(SeedOfSlot(0), static_cast<int32_t>(size), 1, &block, AD_POLICY_MANDATORY),
              KIV_ST_OK);
    EXPECT_TRUE(AllZero(block, size)) << size;
    Free(block);
  }
  void* block = nullptr;
  ASSERT_EQ(adCalloc(SeedOfSlot(0), 30, 50, &block, AD_POLICY_FULL), KIV_ST_OK);
  EXPECT_EQ(PayloadBytes(block), 1504u);
  Free(block);
}

TEST(Front, ANegativeCountRequestsNearly2To64Bytes) {
  ASSERT_EQ(Restart(kSmall), KIV_ST_OK);
  Listen();
  void* block = kUntouched;
  EXPECT_EQ(adCalloc(nullptr, -1, 1, &block, AD_POLICY_FULL), KIV_ST_OUT_OF_MEMORY);
  EXPECT_EQ(block, nullptr);
  EXPECT_EQ(TakeMessages(), std::vector<Message>{NoMemory(kHeaps - 1, UINT64_MAX)});
  // Products that would wrap to a small size.
  struct Case {
    int32_t count;
    uint64_t size;
  };
  for (const Case& c : {Case{2, uint64_t{1} << 63}, Case{-1, 2}, Case{INT32_MIN, 3},
                        Case{-1, UINT64_MAX}, Case{16, (uint64_t{1} << 60) + 1}}) {
    block = kUntouched;
    EXPECT_EQ(adCalloc(nullptr, c.count, c.size, &block, AD_POLICY_FULL), KIV_ST_OUT_OF_MEMORY);
    EXPECT_EQ(block, nullptr);
  }
}

TEST(Front, ElementsThatExceed90PercentOfTheLimitWarn) {
  ASSERT_EQ(Restart(std::string(kSmall) + "memorylimit 10M"), KIV_ST_OK);
  Listen();
  const uint64_t mark = 10485760 / 100 * 90;
  void* block = nullptr;
  ASSERT_EQ(adCalloc(nullptr, 1, mark + 1 - kHeaps - kLargeHeaderBytes, &block, AD_POLICY_FULL),
            KIV_ST_OK);
  EXPECT_EQ(TakeMessages(), std::vector<Message>{Near(mark + 1)});
  Free(block);
}

TEST(Front, TextsAreCopiedWith4MoreZeroBytes) {
  ASSERT_EQ(Restart(kSmall), KIV_ST_OK);
  for (const size_t length : {0u, 1u, 19u, 20u, 100u, 500u, 70'000u}) {
    // Makes the next block of this size dirty in every slot.
    for (uint64_t slot = 0; slot < kSlots; ++slot) {
      void* dirty = Allocate(length + 5, SeedOfSlot(slot));
      Fill(dirty, length + 5, 1);
      Free(dirty);
    }
    const std::string text(length, 'x');
    char* copy = adStrDup(text.c_str(), "tests", 1);
    ASSERT_NE(copy, nullptr);
    EXPECT_EQ(std::string(copy), text);
    EXPECT_TRUE(AllZero(copy + length, 5)) << length;
    if (IsLarge(copy)) {
      ExpectLarge(copy, length + 5);
    } else {
      EXPECT_EQ(PayloadBytes(copy), std::max<size_t>(24, (length + 5 + 7) / 8 * 8));
    }
    Free(copy);
  }
}

TEST(Front, ATextWithoutMemoryIsNull) {
  ASSERT_EQ(Restart(std::string(kSmall) + "memorylimit 10M"), KIV_ST_OK);
  Listen();
  const std::string text(5'000'000, 'x');
  EXPECT_EQ(adStrDup(text.c_str(), "tests", 1), nullptr);
  EXPECT_EQ(TakeMessages(), std::vector<Message>{Refused(kHeaps + 5'000'005, 5'000'005)});
}

TEST(Front, BlocksOfANodeAreRuntimeBlocksAndNotCounted) {
  ASSERT_EQ(Restart(kSmall), KIV_ST_OK);
  Listen();
  const Totals before = TotalsNow();
  uint64_t size = 0;
  void* block = nullptr;
  ASSERT_EQ(adMallocOnNode(kUntouched, 1000, &size, &block), KIV_ST_OK);
  EXPECT_EQ(size, 1000u);
  Fill(block, 1000, 1);
  EXPECT_EQ(TotalsNow(), before);
  EXPECT_EQ(adFreeOnNode(1, 2, block), KIV_ST_OK);
  ASSERT_EQ(adMallocOnNode(nullptr, 10, &size, &block), KIV_ST_OK);
  std::free(block);

  constexpr uint64_t kMore = (uint64_t{1} << 60) + 5;
  EXPECT_EQ(adMallocOnNode(nullptr, kMore, &size, &block), KIV_ST_OUT_OF_MEMORY);
  EXPECT_EQ(size, kMore);
  EXPECT_EQ(block, nullptr);
  EXPECT_EQ(TakeMessages(), std::vector<Message>{NoMemory(kHeaps + 5, 5)});
}

// ---- Freeing ----

TEST(Front, AlignedBlocksAreFreedLikeAnyOther) {
  ASSERT_EQ(Restart(kSmall), KIV_ST_OK);
  for (const uint8_t origin : {uint8_t{0}, uint8_t{1}}) {
    void* small = nullptr;
    ASSERT_EQ(adMallocAligned(SeedOfSlot(0), 64, 100, &small, "tests", 1), KIV_ST_OK);
    EXPECT_EQ(adFreeAligned(small, origin), KIV_ST_OK);
    EXPECT_EQ(Allocate(100), small);
    Free(small);
    void* large = nullptr;
    ASSERT_EQ(adMallocAligned(SeedOfSlot(0), 64, 100'000, &large, "tests", 1), KIV_ST_OK);
    ExpectLarge(large, 100'000);
    EXPECT_EQ(adFreeAligned(large, origin), KIV_ST_OK);
    EXPECT_EQ(TotalsNow().outside, 0u);
  }
}

TEST(Front, WithTheNoFreeSwitchOnlyAlignedBlocksAreFreed) {
  IN_FRESH_PROCESS([] {
    KivSdSetMemoryManager(1);
    ASSERT_EQ(Initialize(kSmall), KIV_ST_OK);
    int region = 0;
    ASSERT_EQ(adMemAlignedIncCounter(&region, 1), KIV_ST_OK);
    void* small = Allocate(100);
    void* large = Allocate(100'000);
    EXPECT_EQ(KivSdSetMemDeallocOption(), 1u);
    EXPECT_EQ(adFree(nullptr, "tests", 1), KIV_ST_OK);
    EXPECT_EQ(adFree(small, "tests", 1), KIV_ST_OK);
    EXPECT_EQ(adFree(large, "tests", 1), KIV_ST_OK);
    EXPECT_EQ(TotalsNow().outside, 100'032u);
    EXPECT_NE(Allocate(100), small);
    adMemAlignedDecCounter(&region);
    EXPECT_EQ(TotalsNow().aligned, 0u);
    EXPECT_EQ(adFreeAligned(nullptr, 0), KIV_ST_ARGUMENT);
    EXPECT_EQ(adFreeAligned(small, 0), KIV_ST_OK);
    EXPECT_EQ(Allocate(100), small);
    EXPECT_EQ(adFreeAligned(large, 1), KIV_ST_OK);
    EXPECT_EQ(TotalsNow().outside, 0u);
  });
}

// The switch affects plain mode only. Heaps and large blocks get policy headers, which callers do
// not see.
TEST(Front, TheMemoryManagerSwitchChangesNothing) {
  IN_FRESH_PROCESS([] {
    KivSdSetMemoryManager(1);
    EXPECT_EQ(adCreateThreadAlloc(), KIV_ST_OK);
    ASSERT_EQ(Initialize(kSmall), KIV_ST_OK);
    void* small = Allocate(100);
    EXPECT_EQ(BlockBytes(small), 128u);
    void* block = Allocate(100'000);
    ExpectLarge(block, 100'000);
    EXPECT_EQ(TotalsNow().outside, 100'032u);
    Fill(block, 100'000, 1);
    for (const uint64_t size : {3'000'000u, 70'000u, 130'000u}) {
      void* resized = nullptr;
      ASSERT_EQ(adRealloc(nullptr, size, block, &resized, "tests", 1), KIV_ST_OK);
      EXPECT_TRUE(IsFilled(resized, 70'000, 1));
      EXPECT_EQ(TotalsNow().outside, size + 32);
      block = resized;
    }
    Free(block);
    Free(small);
    EXPECT_EQ(TotalsNow().outside, 0u);
    EXPECT_EQ(adDestroyThreadAlloc(), KIV_ST_OK);
  });
}

TEST(Front, ABlockOfAnotherThreadIsFreedToItsHeap) {
  ASSERT_EQ(Restart(kSmall), KIV_ST_OK);
  for (uint64_t slot = 0; slot < kSlots; ++slot) {
    for (const uint64_t size : {100u, 5000u}) {
      void* theirs = OnAnotherThread([=] { return Allocate(size, SeedOfSlot(slot)); });
      EXPECT_EQ(SlotOf(theirs), slot);
      Free(theirs);
      EXPECT_EQ(Allocate(size, SeedOfSlot(slot)), theirs);
      OnAnotherThread([=] {
        Free(theirs);
        return 0;
      });
      EXPECT_EQ(Allocate(size, SeedOfSlot(slot)), theirs);
      Free(theirs);
    }
    void* large = OnAnotherThread([=] { return Allocate(100'000, SeedOfSlot(slot)); });
    Free(large);
  }
  EXPECT_EQ(TotalsNow().outside, 0u);
}

// ---- Reallocation ----

void* Resize(void* block, uint64_t sizeBytes, void* owner = SeedOfSlot(0)) {
  void* resized = nullptr;
  EXPECT_EQ(adRealloc(owner, sizeBytes, block, &resized, "tests", 1), KIV_ST_OK);
  return resized;
}

TEST(Realloc, StaysInPlaceWhileTheBlockIsLargeEnough) {
  ASSERT_EQ(Restart(kSmall), KIV_ST_OK);
  void* block = Allocate(1000);
  Fill(block, 1000, 1);
  EXPECT_EQ(Resize(block, 1000), block);
  EXPECT_EQ(Resize(block, 968), block);
  EXPECT_EQ(PayloadBytes(block), 1000u) << "32 bytes are too few to give back";
  EXPECT_EQ(Resize(block, 960), block);
  EXPECT_EQ(PayloadBytes(block), 960u);
  EXPECT_EQ(Resize(block, 1), block);
  EXPECT_EQ(PayloadBytes(block), 24u);
  EXPECT_TRUE(IsFilled(block, 24, 1));
}

TEST(Realloc, MovesBetweenHeapsAndLargeBlocksWithItsContent) {
  ASSERT_EQ(Restart(kSmall), KIV_ST_OK);
  void* block = Resize(nullptr, 50);
  Fill(block, 50, 1);
  void* grown = Resize(block, 5000);
  EXPECT_NE(grown, block);
  EXPECT_TRUE(IsFilled(grown, 50, 1));
  EXPECT_EQ(Allocate(50), block) << "the old block was freed";
  Fill(grown, 5000, 2);
  void* large = Resize(grown, kLargestInHeap + 1);
  ExpectLarge(large, kLargestInHeap + 1);
  EXPECT_TRUE(IsFilled(large, 5000, 2));
  EXPECT_EQ(TotalsNow().outside, kLargestInHeap + 33);
  EXPECT_EQ(Allocate(5000), grown) << "the old block was freed";
  Fill(large, kLargestInHeap + 1, 3);
  large = Resize(large, 3'000'000);
  ExpectLarge(large, 3'000'000);
  EXPECT_TRUE(IsFilled(large, kLargestInHeap + 1, 3));
  void* small = Resize(large, kLargestInHeap);
  EXPECT_FALSE(IsLarge(small));
  EXPECT_TRUE(IsFilled(small, kLargestInHeap, 3));
  EXPECT_EQ(TotalsNow().outside, 0u);
  small = Resize(small, 10);
  EXPECT_TRUE(IsFilled(small, 10, 3));
}

TEST(Realloc, GoesToAnotherHeapWhenItsOwnIsFull) {
  ASSERT_EQ(Restart(kSmall), KIV_ST_OK);
  void* block = Allocate(1000);
  Fill(block, 1000, 1);
  for (int i = 0; i < 7; ++i) Allocate(kLargestInHeap);
  char* heap = HeapOf(block);
  void* moved = Resize(block, kLargestInHeap);
  EXPECT_NE(HeapOf(moved), heap);
  EXPECT_EQ(SlotOf(moved), 0u) << "of the owner's slot, which was exchanged";
  EXPECT_EQ(IndexOf(heap), kSpareIndex);
  EXPECT_TRUE(IsFilled(moved, 1000, 1));
}

TEST(Realloc, ThatFailsLeavesTheBlockUnchanged) {
  ASSERT_EQ(Restart(std::string(kSmall) + "memorylimit 10M"), KIV_ST_OK);
  Listen();
  void* block = Allocate(1000);
  Fill(block, 1000, 1);
  const Totals before = TotalsNow();
  void* moved = block;
  EXPECT_EQ(adRealloc(nullptr, 5'000'000, block, &moved, "tests", 1), KIV_ST_OUT_OF_MEMORY);
  EXPECT_EQ(moved, nullptr);
  EXPECT_EQ(PayloadBytes(block), 1000u);
  EXPECT_TRUE(IsFilled(block, 1000, 1));
  EXPECT_EQ(TotalsNow(), before);
  EXPECT_EQ(TakeMessages(), std::vector<Message>{Refused(kHeaps + 5'000'000, 5'000'000)});
}

// The resized block does not return to the owner's ring.
TEST(Realloc, TakesALargeBlockFromItsShortHeapOwner) {
  ASSERT_EQ(Restart(kSmall), KIV_ST_OK);
  AdShortHeapOwner owner = {};
  adMemShortHeapInit(&owner);
  void* block = nullptr;
  ASSERT_EQ(adMemShortHeapMalloc(&owner, 100'000, &block, "tests", 1), KIV_ST_OK);
  void* moved = Resize(block, 200'000);
  ExpectLarge(moved, 200'000);
  EXPECT_EQ(owner.largeBlocks, nullptr);
  adMemShortHeapTerm(&owner);
  Fill(moved, 200'000, 1);
  Free(moved);
}

TEST(Realloc, GrowsAShortHeapsBlockInItsHeap) {
  ASSERT_EQ(Restart(kSmall), KIV_ST_OK);
  AdShortHeapOwner owner = {};
  adMemShortHeapInit(&owner);
  void* block = nullptr;
  ASSERT_EQ(adMemShortHeapMalloc(&owner, 100, &block, "tests", 1), KIV_ST_OK);
  Fill(block, 100, 1);
  EXPECT_EQ(Resize(block, 90), block);
  void* grown = Resize(block, 150);
  EXPECT_NE(grown, block);
  EXPECT_EQ(HeapOf(grown), owner.heap);
  EXPECT_TRUE(IsFilled(grown, 90, 1));

  // If the short heap has no room, the block moves to a thread heap, and its old place is free.
  void* other = nullptr;
  for (int i = 0; i < 4; ++i) {
    ASSERT_EQ(adMemShortHeapMalloc(&owner, kLargestInHeap, &other, "tests", 1), KIV_ST_OK);
    EXPECT_EQ(HeapOf(other), owner.heap);
  }
  void* moved = Resize(grown, kLargestInHeap);
  EXPECT_EQ(SlotOf(moved), 0u);
  EXPECT_TRUE(IsFilled(moved, 90, 1));
  ASSERT_EQ(adMemShortHeapMalloc(&owner, 150, &other, "tests", 1), KIV_ST_OK);
  EXPECT_EQ(other, grown);
  adMemShortHeapTerm(&owner);
  Free(moved);
}

TEST(Realloc, FreesABlockThatMovedEvenWithTheNoFreeSwitchOn) {
  IN_FRESH_PROCESS([] {
    KivSdSetMemoryManager(1);
    ASSERT_EQ(Initialize(kSmall), KIV_ST_OK);
    EXPECT_EQ(KivSdSetMemDeallocOption(), 1u);
    void* block = Allocate(5000);
    void* large = Resize(block, 100'000);
    EXPECT_EQ(Allocate(5000), block);
    EXPECT_EQ(TotalsNow().outside, 100'032u);
    Resize(large, 5000);
    EXPECT_EQ(TotalsNow().outside, 0u);
  });
}

}  // namespace
