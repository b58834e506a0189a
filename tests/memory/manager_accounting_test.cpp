// The totals of the memory manager, its limit, and the warning near the limit.
#include <gtest/gtest.h>

#include <string>
#include <thread>

#include "support/manager.h"
#include "support/process.h"

namespace {

using namespace kiv::test;

constexpr uint64_t kLimit = 20 * 1024 * 1024;
constexpr uint64_t kWarningMark = kLimit / 100 * 90;  // 18 bytes less than 90% of the limit
constexpr uint64_t kHeaps = kFirstHeaps * kHeapBytes;
constexpr uint64_t kUnit = AD_MEMORY_UNIT;
static_assert(kWarningMark == 18874350);

const std::string kLimited = std::string(kSmall) + "memorylimit 20M";

// Returns the request that raises the total to totalBytes.
uint64_t RequestFor(uint64_t total) {
  const Totals now = TotalsNow();
  return total - now.used() - now.aligned - kLargeHeaderBytes;
}

uint32_t TryAllocate(uint64_t sizeBytes, void** block) {
  return adMalloc(SeedOfSlot(0), sizeBytes, block, "tests", 1);
}

TEST(Accounting, CountsHeapsLargeBlocksAndTheirHeaders) {
  ASSERT_EQ(Restart(kSmall), KIV_ST_OK);
  EXPECT_EQ(TotalsNow(), (Totals{0, kHeaps, 0, kHeaps, 0, kHeaps}));
  void* small = Allocate(kLargestInHeap);
  EXPECT_EQ(TotalsNow(), (Totals{0, kHeaps, 0, kHeaps, 0, kHeaps}));
  void* large = Allocate(kLargestInHeap + 1);
  const uint64_t high = kHeaps + kLargestInHeap + 33;
  EXPECT_EQ(TotalsNow(), (Totals{kLargestInHeap + 33, kHeaps, 0, high, 0, high}));
  Free(large);
  EXPECT_EQ(TotalsNow(), (Totals{0, kHeaps, 0, high, 0, high}));
  Free(small);
  EXPECT_EQ(TotalsNow(), (Totals{0, kHeaps, 0, high, 0, high}));
}

TEST(Accounting, MarksAreResetAndPeaksAreNot) {
  ASSERT_EQ(Restart(kSmall), KIV_ST_OK);
  int region = 0;
  ASSERT_EQ(adMemAlignedIncCounter(&region, 100), KIV_ST_OK);
  void* large = Allocate(1'000'000);
  const uint64_t used = kHeaps + 1'000'032;
  const uint64_t aligned = 100 * kUnit;
  EXPECT_EQ(MarksNow(), (Marks{used, aligned, used + aligned}));
  Free(large);
  adMemAlignedDecCounter(&region);
  EXPECT_EQ(MarksNow(), (Marks{used, aligned, used + aligned}));

  EXPECT_EQ(adMemResetMaxUsedMarkMemory(), 0u);
  EXPECT_EQ(MarksNow(), (Marks{kHeaps, 0, kHeaps}));
  large = Allocate(500'000);
  EXPECT_EQ(MarksNow(), (Marks{kHeaps + 500'032, 0, kHeaps + 500'032}));
  EXPECT_EQ(TotalsNow().usedPeak, used);
  EXPECT_EQ(TotalsNow().alignedPeak, aligned);
  EXPECT_EQ(TotalsNow().totalPeak, used + aligned);
  ASSERT_EQ(adMemAlignedIncCounter(&region, 1), KIV_ST_OK);
  EXPECT_EQ(MarksNow(), (Marks{kHeaps + 500'032, kUnit, kHeaps + 500'032 + kUnit}));
  EXPECT_EQ(TotalsNow().alignedPeak, aligned);
  Free(large);
  // Marks are reset to the memory in use, not to 0.
  EXPECT_EQ(adMemResetMaxUsedMarkMemory(), 0u);
  EXPECT_EQ(MarksNow(), (Marks{kHeaps, kUnit, kHeaps + kUnit}));
  large = Allocate(2'000'000);
  const uint64_t high = kHeaps + 2'000'032;
  EXPECT_EQ(TotalsNow(), (Totals{2'000'032, kHeaps, kUnit, high, aligned, high + kUnit}));
  adMemAlignedDecCounter(&region);
  Free(large);
}

TEST(Accounting, AReallocationCountsTheDifference) {
  ASSERT_EQ(Restart(kSmall), KIV_ST_OK);
  void* block = Allocate(1'000'000);
  Fill(block, 1'000'000, 1);
  void* moved = nullptr;
  ASSERT_EQ(adRealloc(nullptr, 3'000'000, block, &moved, "tests", 1), KIV_ST_OK);
  ExpectLarge(moved, 3'000'000);
  EXPECT_TRUE(IsFilled(moved, 1'000'000, 1));
  EXPECT_EQ(TotalsNow().outside, 3'000'032u);
  // The old and the new block are never counted together.
  EXPECT_EQ(TotalsNow().usedPeak, kHeaps + 3'000'032);
  EXPECT_EQ(MarksNow().used, kHeaps + 3'000'032);
  ASSERT_EQ(adRealloc(nullptr, 2'000'000, moved, &block, "tests", 1), KIV_ST_OK);
  ExpectLarge(block, 2'000'000);
  EXPECT_TRUE(IsFilled(block, 1'000'000, 1));
  EXPECT_EQ(TotalsNow().outside, 2'000'032u);
  EXPECT_EQ(TotalsNow().usedPeak, kHeaps + 3'000'032);
  Free(block);
  EXPECT_EQ(TotalsNow().outside, 0u);
}

TEST(Accounting, AReallocationRaisesMarksAndPeaks) {
  ASSERT_EQ(Restart(kSmall), KIV_ST_OK);
  int region = 0;
  ASSERT_EQ(adMemAlignedIncCounter(&region, 3), KIV_ST_OK);
  void* block = Allocate(1'000'000);
  void* moved = nullptr;
  ASSERT_EQ(adRealloc(nullptr, 3'000'000, block, &moved, "tests", 1), KIV_ST_OK);
  const uint64_t high = kHeaps + 3'000'032;
  EXPECT_EQ(MarksNow(), (Marks{high, 3 * kUnit, high + 3 * kUnit}));
  EXPECT_EQ(TotalsNow(), (Totals{3'000'032, kHeaps, 3 * kUnit, high, 3 * kUnit, high + 3 * kUnit}));
  EXPECT_EQ(adMemResetMaxUsedMarkMemory(), 0u);
  ASSERT_EQ(adRealloc(nullptr, 2'000'000, moved, &block, "tests", 1), KIV_ST_OK);
  ASSERT_EQ(adRealloc(nullptr, 2'500'000, block, &moved, "tests", 1), KIV_ST_OK);
  // Below mark and peak: neither changes.
  EXPECT_EQ(MarksNow(), (Marks{high, 3 * kUnit, high + 3 * kUnit}));
  EXPECT_EQ(adMemResetMaxUsedMarkMemory(), 0u);
  ASSERT_EQ(adRealloc(nullptr, 2'600'000, moved, &block, "tests", 1), KIV_ST_OK);
  const uint64_t later = kHeaps + 2'600'032;
  EXPECT_EQ(MarksNow(), (Marks{later, 3 * kUnit, later + 3 * kUnit}));
  EXPECT_EQ(TotalsNow().usedPeak, high);
  EXPECT_EQ(TotalsNow().totalPeak, high + 3 * kUnit);
  adMemAlignedDecCounter(&region);
  Free(block);
}

// Growing by 2 GiB and 16 bytes counts as shrinking by 2 GiB less 16 bytes.
TEST(Accounting, AReallocationCountsTheDifferenceIn32BitsWithASign) {
  ASSERT_EQ(Restart(kSmall), KIV_ST_OK);
  constexpr uint64_t kSize = 100'000;
  constexpr uint64_t kChange = 0x80000010;
  constexpr uint64_t kCounted = 0x7FFFFFF0;
  void* block = Allocate(kSize);
  const uint64_t before = TotalsNow().used();
  void* moved = nullptr;
  ASSERT_EQ(adRealloc(nullptr, kSize + kChange, block, &moved, "tests", 1), KIV_ST_OK);
  ExpectLarge(moved, kSize + kChange);
  EXPECT_EQ(TotalsNow().used(), before - kCounted);
  ASSERT_EQ(adRealloc(nullptr, kSize, moved, &block, "tests", 1), KIV_ST_OK);
  ExpectLarge(block, kSize);
  EXPECT_EQ(TotalsNow().used(), before);
  Free(block);
}

TEST(Accounting, TheLimitMayBeReachedButNotExceeded) {
  ASSERT_EQ(Restart(kLimited), KIV_ST_OK);
  Listen();
  const uint64_t most = RequestFor(kLimit);
  void* block = Allocate(most);
  EXPECT_EQ(TotalsNow().used(), kLimit);
  Free(block);
  TakeMessages();
  const Totals before = TotalsNow();
  const Marks marks = MarksNow();
  EXPECT_EQ(TryAllocate(most + 1, &block), KIV_ST_OUT_OF_MEMORY);
  EXPECT_EQ(block, nullptr);
  // The refused request changed nothing.
  EXPECT_EQ(TotalsNow(), before);
  EXPECT_EQ(MarksNow(), marks);
  EXPECT_EQ(TakeMessages(), std::vector<Message>{Refused(kHeaps + most + 1, most + 1)});
}

TEST(Accounting, ARefusedRequestRaisesNoMark) {
  ASSERT_EQ(Restart(kLimited), KIV_ST_OK);
  void* block = nullptr;
  EXPECT_EQ(TryAllocate(kLimit, &block), KIV_ST_OUT_OF_MEMORY);
  EXPECT_EQ(MarksNow(), (Marks{kHeaps, 0, kHeaps}));
  EXPECT_EQ(TotalsNow(), (Totals{0, kHeaps, 0, kHeaps, 0, kHeaps}));
}

TEST(Accounting, RegionsCountAgainstTheLimit) {
  ASSERT_EQ(Restart(kLimited), KIV_ST_OK);
  Listen();
  int region = 0;
  int other = 0;
  const auto most = static_cast<uint32_t>((kLimit - kHeaps) / kUnit);
  static_assert((kLimit - kHeaps) % kUnit == 0);
  EXPECT_EQ(adMemAlignedIncCounter(&region, most + 1), KIV_ST_ALIGNED_COMMIT);
  EXPECT_EQ(TotalsNow().aligned, 0u);
  EXPECT_EQ(TakeMessages(), std::vector<Message>{Refused(kHeaps, (most + 1) * kUnit)});
  adMemAlignedDecCounter(&region);
  EXPECT_EQ(TotalsNow().aligned, 0u);

  EXPECT_EQ(adMemAlignedIncCounter(&region, most), KIV_ST_OK);
  EXPECT_EQ(TotalsNow().aligned + TotalsNow().used(), kLimit);
  EXPECT_EQ(adMemAlignedIncCounter(&other, 1), KIV_ST_ALIGNED_COMMIT);
  EXPECT_EQ(adMemAlignedIncCounter(&other, 0), KIV_ST_OK);
  void* block = nullptr;
  EXPECT_EQ(TryAllocate(kLargestInHeap + 1, &block), KIV_ST_OUT_OF_MEMORY);
  // Heaps still serve requests for which they have room.
  Free(Allocate(kLargestInHeap));
  adMemAlignedDecCounter(&region);
  adMemAlignedDecCounter(&other);
  Free(Allocate(kLargestInHeap + 1));
  EXPECT_EQ(TotalsNow().used(), kHeaps);
}

TEST(Accounting, AReallocationAboveTheLimitLeavesTheBlockUnchanged) {
  ASSERT_EQ(Restart(kLimited), KIV_ST_OK);
  Listen();
  const uint64_t size = 1'000'000;
  void* block = Allocate(size);
  Fill(block, size, 5);
  const uint64_t most = size + RequestFor(kLimit) + kLargeHeaderBytes;
  const Totals before = TotalsNow();
  void* moved = block;
  EXPECT_EQ(adRealloc(nullptr, most + 1, block, &moved, "tests", 1), KIV_ST_OUT_OF_MEMORY);
  EXPECT_EQ(moved, nullptr);
  ExpectLarge(block, size);
  EXPECT_TRUE(IsFilled(block, size, 5));
  EXPECT_EQ(TotalsNow(), before);
  EXPECT_EQ(TakeMessages(), std::vector<Message>{Refused(kHeaps + size + 32 + most + 1, most + 1)});

  EXPECT_EQ(adRealloc(nullptr, most, block, &moved, "tests", 1), KIV_ST_OK);
  EXPECT_EQ(TotalsNow().used(), kLimit);
  EXPECT_TRUE(IsFilled(moved, size, 5));
  Free(moved);
}

TEST(Accounting, RegionsCountAgainstTheLimitOfAReallocation) {
  ASSERT_EQ(Restart(kLimited), KIV_ST_OK);
  int region = 0;
  ASSERT_EQ(adMemAlignedIncCounter(&region, 5), KIV_ST_OK);
  void* block = Allocate(1'000'000);
  const uint64_t most = 1'000'000 + RequestFor(kLimit) + kLargeHeaderBytes;
  void* moved = nullptr;
  EXPECT_EQ(adRealloc(nullptr, most + 1, block, &moved, "tests", 1), KIV_ST_OUT_OF_MEMORY);
  ASSERT_EQ(adRealloc(nullptr, most, block, &moved, "tests", 1), KIV_ST_OK);
  EXPECT_EQ(TotalsNow().used() + TotalsNow().aligned, kLimit);
  Free(moved);
  adMemAlignedDecCounter(&region);
}

// ---- The warning ----

TEST(Accounting, WarnsJustAbove90Percent) {
  ASSERT_EQ(Restart(kLimited), KIV_ST_OK);
  Listen();
  const uint64_t most = RequestFor(kWarningMark);
  Free(Allocate(most));
  EXPECT_EQ(TakeMessages(), std::vector<Message>{});
  void* block = Allocate(most + 1);
  EXPECT_EQ(TakeMessages(), std::vector<Message>{Near(kWarningMark + 1)});
  Free(block);
}

TEST(Accounting, WarnsAbove94371840BytesOf100MiB) {
  ASSERT_EQ(Restart(std::string(kSmall) + "memorylimit 100M"), KIV_ST_OK);
  Listen();
  const uint64_t most = RequestFor(94371840);
  Free(Allocate(most));
  EXPECT_EQ(TakeMessages(), std::vector<Message>{});
  Free(Allocate(most + 1));
  EXPECT_EQ(TakeMessages(), std::vector<Message>{Near(94371841)});
}

TEST(Accounting, WarnsWhenAReallocationGrowsAbove90Percent) {
  ASSERT_EQ(Restart(kLimited), KIV_ST_OK);
  Listen();
  const uint64_t most = RequestFor(kWarningMark);
  void* block = Allocate(most - 1000);
  void* moved = nullptr;
  ASSERT_EQ(adRealloc(nullptr, most, block, &moved, "tests", 1), KIV_ST_OK);
  EXPECT_EQ(TakeMessages(), std::vector<Message>{});
  ASSERT_EQ(adRealloc(nullptr, most + 1, moved, &block, "tests", 1), KIV_ST_OK);
  EXPECT_EQ(TakeMessages(), std::vector<Message>{Near(kWarningMark + 1)});
  Free(block);
}

TEST(Accounting, RegionsCountForTheWarningOfAReallocation) {
  ASSERT_EQ(Restart(kLimited), KIV_ST_OK);
  Listen();
  int region = 0;
  ASSERT_EQ(adMemAlignedIncCounter(&region, 5), KIV_ST_OK);
  void* block = Allocate(1'000'000);
  const uint64_t most = 1'000'000 + RequestFor(kWarningMark) + kLargeHeaderBytes;
  void* moved = nullptr;
  ASSERT_EQ(adRealloc(nullptr, most, block, &moved, "tests", 1), KIV_ST_OK);
  EXPECT_EQ(TakeMessages(), std::vector<Message>{});
  ASSERT_EQ(adRealloc(nullptr, most + 1, moved, &block, "tests", 1), KIV_ST_OK);
  EXPECT_EQ(TakeMessages(), std::vector<Message>{Near(kWarningMark + 1)});
  Free(block);
  adMemAlignedDecCounter(&region);
}

TEST(Accounting, WarnsWhenARegionExceeds90Percent) {
  ASSERT_EQ(Restart(kLimited), KIV_ST_OK);
  Listen();
  int region = 0;
  const auto most = static_cast<uint32_t>((kWarningMark - kHeaps) / kUnit);
  EXPECT_EQ(adMemAlignedIncCounter(&region, most), KIV_ST_OK);
  EXPECT_EQ(TakeMessages(), std::vector<Message>{});
  adMemAlignedDecCounter(&region);
  EXPECT_EQ(adMemAlignedIncCounter(&region, most + 1), KIV_ST_OK);
  EXPECT_EQ(TakeMessages(), std::vector<Message>{Near(kHeaps + (most + 1) * kUnit)});
  adMemAlignedDecCounter(&region);
}

// The new heap exceeds 90%; the request that needed the heap sends the warning.
TEST(Accounting, WarnsWhenANewHeapExceeds90Percent) {
  ASSERT_EQ(Restart("numheaps 13 numthreadheaps 4 heapsize 512K memorylimit 20M"), KIV_ST_OK);
  std::vector<void*> filling;
  for (uint64_t i = 0; i < 9 * 7; ++i) filling.push_back(Allocate(kLargestInHeap));
  void* large = Allocate(RequestFor(kWarningMark));
  Listen();
  EXPECT_EQ(TakeMessages(), std::vector<Message>{});
  filling.push_back(Allocate(kLargestInHeap));
  EXPECT_EQ(TotalsNow().inHeaps, 13 * kHeapBytes);
  EXPECT_EQ(TakeMessages(), std::vector<Message>{Near(kWarningMark + kHeapBytes)});
  Free(large);
  for (void* block : filling) Free(block);
}

// The warning shows the total at which 90% was exceeded: that of the 11th heap, not of the 12th.
TEST(Accounting, AWarningFromTheStartIsSentByTheFirstRequest) {
  ASSERT_EQ(Restart("numthreadheaps 4 heapsize 840K memorylimit 10M"), KIV_ST_OK);
  constexpr uint64_t kHeap = 840 * 1024;
  EXPECT_EQ(TotalsNow().used(), kFirstHeaps * kHeap);
  Listen();
  EXPECT_EQ(TakeMessages(), std::vector<Message>{});
  Free(Allocate(1));
  EXPECT_EQ(TakeMessages(), std::vector<Message>{Near(11 * kHeap)});
  Free(Allocate(1));
  EXPECT_EQ(TakeMessages(), std::vector<Message>{});

  // The next initialisation clears it.
  ASSERT_EQ(Restart("numthreadheaps 4 heapsize 840K memorylimit 10M"), KIV_ST_OK);
  ASSERT_EQ(Restart(kLimited), KIV_ST_OK);
  Listen();
  Free(Allocate(1));
  EXPECT_EQ(TakeMessages(), std::vector<Message>{});
}

// The pending warning is sent instead, with its own total.
TEST(Accounting, ARegionSendsNoWarningOfItsOwnWhileOneIsPending) {
  ASSERT_EQ(Restart("numthreadheaps 4 heapsize 840K memorylimit 10M"), KIV_ST_OK);
  Listen();
  int region = 0;
  ASSERT_EQ(adMemAlignedIncCounter(&region, 1), KIV_ST_OK);
  EXPECT_EQ(TakeMessages(), std::vector<Message>{Near(uint64_t{11} * 840 * 1024)});
  adMemAlignedDecCounter(&region);
}

// In plain mode no request would send a pending warning.
TEST(Accounting, ARegionWarnsAtOnceInPlainMode) {
  ASSERT_EQ(Restart("memorylimit 20M numthreadheaps 0"), KIV_ST_OK);
  Listen();
  int region = 0;
  int other = 0;
  const auto most = static_cast<uint32_t>(kWarningMark / kUnit);
  ASSERT_EQ(adMemAlignedIncCounter(&region, most), KIV_ST_OK);
  EXPECT_EQ(TakeMessages(), std::vector<Message>{});
  ASSERT_EQ(adMemAlignedIncCounter(&other, 1), KIV_ST_OK);
  EXPECT_EQ(TakeMessages(), std::vector<Message>{Near((most + 1) * kUnit)});
  adMemAlignedDecCounter(&other);
  adMemAlignedDecCounter(&region);
  EXPECT_EQ(TotalsNow().aligned, 0u);
}

// ---- The policy of accounted memory ----

// Expects a header of the full policy before `base`. The memory-manager switch must be on.
void ExpectFullPolicy(const void* base, uint32_t sizeClass) {
  EXPECT_EQ(ReadAt<uint8_t>(base, -1), 64);
  EXPECT_EQ(ReadAt<uint8_t>(base, -2), AD_POLICY_FULL);
  EXPECT_EQ(ReadAt<uint32_t>(base, -8), sizeClass);
}

TEST(Accounting, AllocatesUnderTheFullPolicy) {
  IN_FRESH_PROCESS([] {
    KivSdSetMemoryManager(1);
    ASSERT_EQ(Initialize(kSmall), KIV_ST_OK);
    ExpectFullPolicy(HeapOf(Allocate(100)), 19);  // of 512 KiB
    AdShortHeapOwner owner = {};
    adMemShortHeapInit(&owner);
    ExpectFullPolicy(owner.heap, 19);  // 320 KiB are rounded
    void* large = Allocate(100'000);
    ExpectFullPolicy(static_cast<char*>(large) - kLargeHeaderBytes, 17);
    void* larger = nullptr;
    ASSERT_EQ(adRealloc(nullptr, 3'000'000, large, &larger, "tests", 1), KIV_ST_OK);
    ExpectFullPolicy(static_cast<char*>(larger) - kLargeHeaderBytes, 22);
    // The totals count the requested bytes.
    EXPECT_EQ(TotalsNow().outside, kShortHeapBytes + 3'000'032);
  });
}

// ---- Regions ----

// The record of the region is a large block here, and its bytes exceed the limit.
TEST(Regions, MayReachTheLimitExactly) {
  ASSERT_EQ(Restart("numthreadheaps 4 maxblock 0 memorylimit 20M"), KIV_ST_OK);
  int region = 0;
  EXPECT_EQ(adMemAlignedIncCounter(&region, kLimit / kUnit + 1), KIV_ST_ALIGNED_COMMIT);
  EXPECT_EQ(adMemAlignedIncCounter(&region, kLimit / kUnit), KIV_ST_OK);
  EXPECT_EQ(TotalsNow().aligned, kLimit);
  EXPECT_EQ(TotalsNow().totalPeak, kLimit + 24 + kLargeHeaderBytes);
  adMemAlignedDecCounter(&region);
  EXPECT_EQ(TotalsNow().totalPeak, kLimit + 24 + kLargeHeaderBytes);
  EXPECT_EQ(TotalsNow().used() + TotalsNow().aligned, 0u);
}

struct OtherThread {
  uint32_t large;
  uint32_t resized;
  uint32_t region;
  uint32_t fitting;
};
OtherThread outcome;
void* another = nullptr;  // a large block

// Allocates in another thread while this thread sends a warning for a region of 13 MiB. 1 MiB is
// left then.
void AskInAnotherThread() {
  OnMessage(nullptr);
  std::thread([] {
    void* block = nullptr;
    int region = 0;
    outcome.large = TryAllocate(2 << 20, &block);
    outcome.resized = adRealloc(nullptr, 2 << 20, another, &block, "tests", 1);
    outcome.region = adMemAlignedIncCounter(&region, (2 << 20) / kUnit);
    outcome.fitting = TryAllocate(500'000, &block);
    if (block != nullptr) Free(block);
  }).join();
}

TEST(Regions, ReserveTheirBytesWhileTheyAreRegistered) {
  ASSERT_EQ(Restart(kLimited), KIV_ST_OK);
  another = Allocate(kLargestInHeap + 1);
  Listen();
  OnMessage(&AskInAnotherThread);
  outcome = {};
  int region = 0;
  EXPECT_EQ(adMemAlignedIncCounter(&region, (13 << 20) / kUnit), KIV_ST_OK);
  EXPECT_EQ(outcome.large, KIV_ST_OUT_OF_MEMORY);
  EXPECT_EQ(outcome.resized, KIV_ST_OUT_OF_MEMORY);
  EXPECT_EQ(outcome.region, KIV_ST_ALIGNED_COMMIT);
  EXPECT_EQ(outcome.fitting, KIV_ST_OK);
  EXPECT_LE(TotalsNow().totalPeak, kLimit);
  EXPECT_EQ(TotalsNow().aligned, uint64_t{13} << 20);
  adMemAlignedDecCounter(&region);
  Free(another);
  // Nothing is reserved afterwards.
  EXPECT_EQ(TryAllocate(13 << 20, &another), KIV_ST_OK);
  Free(another);
}

// Uses addresses that share a chain of the table, and others that do not.
TEST(Regions, AreFoundByTheirAddress) {
  ASSERT_EQ(Restart(kSmall), KIV_ST_OK);
  const auto address = [](uint64_t number) {
    return reinterpret_cast<const void*>(0x10000 + number * 8 * (number % 2 == 0 ? 131 : 1));
  };
  uint64_t aligned = 0;
  for (uint64_t i = 0; i < 40; ++i) {
    EXPECT_EQ(adMemAlignedIncCounter(address(i), static_cast<uint32_t>(i + 1)), KIV_ST_OK);
    aligned += (i + 1) * kUnit;
    EXPECT_EQ(TotalsNow().aligned, aligned);
  }
  adMemAlignedDecCounter(reinterpret_cast<const void*>(0x10000 + 8 * 131 * 100));
  adMemAlignedDecCounter(reinterpret_cast<const void*>(0x10004));
  EXPECT_EQ(TotalsNow().aligned, aligned);
  // Removes regions from the middle, the head and the end of chains.
  for (uint64_t i = 0; i < 40; ++i) {
    const uint64_t number = i * 7 % 40;
    adMemAlignedDecCounter(address(number));
    aligned -= (number + 1) * kUnit;
    EXPECT_EQ(TotalsNow().aligned, aligned);
    adMemAlignedDecCounter(address(number));
    EXPECT_EQ(TotalsNow().aligned, aligned);
  }
  EXPECT_EQ(aligned, 0u);
  EXPECT_EQ(TotalsNow().used(), kHeaps);
}

TEST(Regions, OfOneAddressAreRemovedNewestFirst) {
  ASSERT_EQ(Restart(kSmall), KIV_ST_OK);
  int region = 0;
  EXPECT_EQ(adMemAlignedIncCounter(&region, 1), KIV_ST_OK);
  EXPECT_EQ(adMemAlignedIncCounter(&region, 10), KIV_ST_OK);
  adMemAlignedDecCounter(&region);
  EXPECT_EQ(TotalsNow().aligned, kUnit);
  adMemAlignedDecCounter(&region);
  EXPECT_EQ(TotalsNow().aligned, 0u);
}

TEST(Regions, OfANullAddressCannotBeRemoved) {
  ASSERT_EQ(Restart(kSmall), KIV_ST_OK);
  EXPECT_EQ(adMemAlignedIncCounter(nullptr, 1), KIV_ST_OK);
  EXPECT_EQ(TotalsNow().aligned, kUnit);
  adMemAlignedDecCounter(nullptr);
  EXPECT_EQ(TotalsNow().aligned, kUnit);
}

TEST(Regions, HaveASizeOf32BitsWithASign) {
  ASSERT_EQ(Restart(kSmall), KIV_ST_OK);
  int region = 0;
  EXPECT_EQ(adMemAlignedIncCounter(&region, 262143), KIV_ST_OK);
  EXPECT_EQ(TotalsNow().aligned, 0x7FFFE000u);
  adMemAlignedDecCounter(&region);
  EXPECT_EQ(adMemAlignedIncCounter(&region, 262144), KIV_ST_OK);
  EXPECT_EQ(TotalsNow().aligned, 0xFFFFFFFF80000000);
  adMemAlignedDecCounter(&region);
  EXPECT_EQ(adMemAlignedIncCounter(&region, 524289), KIV_ST_OK);
  EXPECT_EQ(TotalsNow().aligned, kUnit);
  adMemAlignedDecCounter(&region);
  EXPECT_EQ(TotalsNow().aligned, 0u);
}

// The record of a region is a heap block of 24 bytes.
TEST(Regions, HaveRecordsInTheHeaps) {
  ASSERT_EQ(Restart(std::string(kSmall) + "memoryblockscontrol"), KIV_ST_OK);
  int region = 0;
  EXPECT_EQ(adMemAlignedIncCounter(&region, 1), KIV_ST_OK);
  EXPECT_EQ(CountsNow().allocated[0], 1u);
  EXPECT_EQ(CountsNow().freed[0], 0u);
  adMemAlignedDecCounter(&region);
  EXPECT_EQ(CountsNow().freed[0], 1u);
  EXPECT_EQ(TotalsNow().outside, 0u);
}

TEST(Regions, KeepTheirRecordsWithTheNoFreeSwitchOn) {
  IN_FRESH_PROCESS([] {
    KivSdSetMemoryManager(1);
    ASSERT_EQ(Initialize(std::string(kSmall) + "memoryblockscontrol"), KIV_ST_OK);
    int region = 0;
    ASSERT_EQ(adMemAlignedIncCounter(&region, 1), KIV_ST_OK);
    ASSERT_EQ(KivSdSetMemDeallocOption(), 1u);
    adMemAlignedDecCounter(&region);
    EXPECT_EQ(TotalsNow().aligned, 0u);
    EXPECT_EQ(CountsNow().allocated[0], 1u);
    EXPECT_EQ(CountsNow().freed[0], 0u);
    adMemAlignedDecCounter(&region);
    EXPECT_EQ(TotalsNow().aligned, 0u) << "found again";
  });
}

}  // namespace
