// Statistics of block sizes: classes, and blocks that are counted twice.
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "support/manager.h"

namespace {

using namespace kiv::test;

const std::string kCounted = std::string(kSmall) + "memoryblockscontrol ";

// Returns the class: up to 160 bytes, up to 1024, up to each power of two, above 8 MiB.
uint32_t ClassOf(uint64_t sizeBytes) {
  if (sizeBytes <= 160) return 0;
  uint32_t number = 1;
  for (uint64_t most = 1024; sizeBytes > most && number < 15; most *= 2) ++number;
  return number;
}
constexpr uint32_t kLastClass = 15;

class Expected {
 public:
  void Allocated(uint64_t sizeBytes, uint64_t times = 1) {
    counts_.allocated[ClassOf(sizeBytes)] += times;
  }
  void Freed(uint64_t sizeBytes, uint64_t times = 1) { counts_.freed[ClassOf(sizeBytes)] += times; }

  void Check(uint32_t selector = kSinceStart) const {
    const Counts counts = CountsNow(selector);
    EXPECT_EQ(counts.allocated, counts_.allocated);
    EXPECT_EQ(counts.freed, counts_.freed);
  }

 private:
  Counts counts_ = {};
};

TEST(Statistics, ClassesEndAtTheirBoundaries) {
  // All requests become large blocks, whose sizes are not rounded.
  ASSERT_EQ(Restart("numthreadheaps 4 maxblock 0 memoryblockscontrol"), KIV_ST_OK);
  Expected expected;
  std::vector<uint64_t> boundaries = {160, 1024};
  for (uint64_t most = 2048; most <= (uint64_t{1} << 23); most *= 2) boundaries.push_back(most);
  uint32_t number = 0;
  for (const uint64_t most : boundaries) {
    EXPECT_EQ(ClassOf(most), number);
    EXPECT_EQ(ClassOf(most + 1), ++number);
    for (const uint64_t size : {most, most + 1}) {
      void* block = Allocate(size);
      expected.Allocated(size);
      expected.Check();
      Free(block);
      expected.Freed(size);
      expected.Check();
    }
  }
  EXPECT_EQ(number, kLastClass);
  Free(Allocate(1));
  expected.Allocated(1);
  expected.Freed(1);
  Free(Allocate(uint64_t{64} << 20));
  expected.Allocated(uint64_t{64} << 20);
  expected.Freed(uint64_t{64} << 20);
  expected.Check();
}

TEST(Statistics, AFreeOfAHeapBlockCountsItsPayload) {
  ASSERT_EQ(Restart(kCounted), KIV_ST_OK);
  Expected expected;
  for (const uint64_t size : {1u, 153u, 160u, 161u, 1020u, 1024u, 1025u, 2047u, 65536u}) {
    Free(Allocate(size));
    expected.Allocated(size);
    expected.Freed((size + 7) / 8 * 8);
    expected.Check();
  }
}

TEST(Statistics, EveryEntryPointIsCounted) {
  ASSERT_EQ(Restart(kCounted), KIV_ST_OK);
  Expected expected;
  void* block = nullptr;
  ASSERT_EQ(adMallocPolicy(nullptr, 200, &block, AD_POLICY_MANDATORY, "tests", 1), KIV_ST_OK);
  expected.Allocated(200);
  expected.Check();
  ASSERT_EQ(adMallocAligned(nullptr, 64, 200, &block, "tests", 1), KIV_ST_OK);
  expected.Allocated(200);
  expected.Check();
  ASSERT_EQ(adCalloc(nullptr, 2, 2000, &block, AD_POLICY_FULL), KIV_ST_OK);
  expected.Allocated(4000);
  expected.Check();
  EXPECT_EQ(adFreeAligned(block, 0), KIV_ST_OK);
  expected.Freed(4000);
  expected.Check();
  Free(adStrDup("text", "tests", 1));
  expected.Allocated(9);
  expected.Freed(24);
  expected.Check();
  uint64_t size = 0;
  ASSERT_EQ(adMallocOnNode(nullptr, 100, &size, &block), KIV_ST_OK);
  EXPECT_EQ(adFreeOnNode(0, 0, block), KIV_ST_OK);
  expected.Check();
  EXPECT_EQ(adMalloc(nullptr, 0, &block, "tests", 1), KIV_ST_ARGUMENT);
  EXPECT_EQ(adFree(nullptr, "tests", 1), KIV_ST_ARGUMENT);
  expected.Check();
}

TEST(Statistics, AReallocationInPlaceCountsAFreeAndAnAllocation) {
  ASSERT_EQ(Restart(kCounted), KIV_ST_OK);
  Expected expected;
  void* block = nullptr;
  ASSERT_EQ(adRealloc(nullptr, 3000, nullptr, &block, "tests", 1), KIV_ST_OK);
  expected.Allocated(3000);
  expected.Check();
  void* same = nullptr;
  ASSERT_EQ(adRealloc(nullptr, 1500, block, &same, "tests", 1), KIV_ST_OK);
  expected.Freed(3000);
  expected.Allocated(1500);
  expected.Check();
  // Also if the block moves within its heap.
  ASSERT_EQ(adRealloc(nullptr, 9000, same, &block, "tests", 1), KIV_ST_OK);
  expected.Freed(1504);
  expected.Allocated(9000);
  expected.Check();
  ASSERT_EQ(adRealloc(nullptr, 200'000, Allocate(100'000), &block, "tests", 1), KIV_ST_OK);
  expected.Allocated(100'000);
  expected.Freed(100'000);
  expected.Allocated(200'000);
  expected.Check();
}

TEST(Statistics, AReallocationThatMovesCountsTheOldSizeTwice) {
  ASSERT_EQ(Restart(kCounted), KIV_ST_OK);
  Expected expected;
  void* block = nullptr;
  ASSERT_EQ(adRealloc(nullptr, 100'000, Allocate(3000), &block, "tests", 1), KIV_ST_OK);
  expected.Allocated(3000);
  expected.Freed(3000, 2);
  expected.Allocated(100'000);
  expected.Check();
  void* small = nullptr;
  ASSERT_EQ(adRealloc(nullptr, 100, block, &small, "tests", 1), KIV_ST_OK);
  expected.Freed(100'000, 2);
  expected.Allocated(100);
  expected.Check();
}

TEST(Statistics, AReallocationThatFailsCountsAFree) {
  ASSERT_EQ(Restart(kCounted + "memorylimit 10M"), KIV_ST_OK);
  Expected expected;
  void* small = Allocate(3000);
  void* large = Allocate(100'000);
  expected.Allocated(3000);
  expected.Allocated(100'000);
  void* block = nullptr;
  EXPECT_EQ(adRealloc(nullptr, 9'000'000, small, &block, "tests", 1), KIV_ST_OUT_OF_MEMORY);
  expected.Freed(3000);
  expected.Check();
  EXPECT_EQ(adRealloc(nullptr, 9'000'000, large, &block, "tests", 1), KIV_ST_OUT_OF_MEMORY);
  expected.Freed(100'000);
  expected.Check();
}

TEST(Statistics, WithoutMemoryOnlyElementsAreCounted) {
  ASSERT_EQ(Restart(kCounted + "memorylimit 10M"), KIV_ST_OK);
  Expected expected;
  void* block = nullptr;
  EXPECT_EQ(adMalloc(nullptr, 9'000'000, &block, "tests", 1), KIV_ST_OUT_OF_MEMORY);
  expected.Check();
  EXPECT_EQ(adCalloc(nullptr, 1, 9'000'000, &block, AD_POLICY_FULL), KIV_ST_OUT_OF_MEMORY);
  expected.Allocated(9'000'000);
  expected.Check();
  // 2^64 - 1 bytes count as -1, a free.
  EXPECT_EQ(adCalloc(nullptr, -1, 1, &block, AD_POLICY_FULL), KIV_ST_OUT_OF_MEMORY);
  expected.Freed(1);
  expected.Check();
}

TEST(Statistics, AResetStartsTheCountsAgain) {
  ASSERT_EQ(Restart(kCounted), KIV_ST_OK);
  Expected all;
  Free(Allocate(100));
  all.Allocated(100);
  all.Freed(104);
  all.Check(kSinceStart);
  all.Check(kSinceReset);
  EXPECT_EQ(adMemResetUsedMarkMemoryBlocks(), 0u);
  Expected later;
  later.Check(kSinceReset);
  later.Check(2);
  later.Check(UINT32_MAX);
  Free(Allocate(5000));
  all.Allocated(5000);
  all.Freed(5000);
  later.Allocated(5000);
  later.Freed(5000);
  all.Check(kSinceStart);
  later.Check(kSinceReset);
}

TEST(Statistics, AShortHeapsBlockThatBecomesLargeIsCountedOnce) {
  ASSERT_EQ(Restart(kCounted), KIV_ST_OK);
  AdShortHeapOwner owner = {};
  adMemShortHeapInit(&owner);
  Expected expected;
  expected.Allocated(kShortHeapBytes);
  void* block = nullptr;
  ASSERT_EQ(adMemShortHeapMalloc(&owner, 3000, &block, "tests", 1), KIV_ST_OK);
  expected.Allocated(3000);
  expected.Check();
  // One allocation and one free are counted.
  void* large = nullptr;
  ASSERT_EQ(adMemShortHeapRealloc(&owner, 100'000, block, &large, "tests", 1), KIV_ST_OK);
  expected.Allocated(100'000);
  expected.Freed(3000);
  expected.Check();
  ASSERT_EQ(adMemShortHeapRealloc(&owner, 200'000, large, &block, "tests", 1), KIV_ST_OK);
  expected.Freed(100'000);
  expected.Allocated(200'000);
  expected.Check();
  ASSERT_EQ(adMemShortHeapRealloc(&owner, 500, block, &large, "tests", 1), KIV_ST_OK);
  expected.Allocated(500);
  expected.Freed(200'000);
  expected.Check();
  ASSERT_EQ(adMemShortHeapMalloc(&owner, 300'000, &block, "tests", 1), KIV_ST_OK);
  expected.Allocated(300'000);
  adMemShortHeapTerm(&owner);
  expected.Freed(kShortHeapBytes);
  expected.Freed(300'000);
  expected.Check();
}

// No request has this size. The size that a large block's free counts stands before the block.
TEST(Statistics, AFreeOfZeroBytesCountsAsAFree) {
  ASSERT_EQ(Restart(kCounted + "nomemorycontrol"), KIV_ST_OK);
  Expected expected;
  void* large = Allocate(100'000);
  expected.Allocated(100'000);
  const uint64_t noBytes = 0;
  std::memcpy(static_cast<char*>(large) - kLargeHeaderBytes, &noBytes, sizeof noBytes);
  Free(large);
  expected.Freed(0);
  for (const uint32_t selector : {kSinceStart, kSinceReset}) expected.Check(selector);
}

}  // namespace
