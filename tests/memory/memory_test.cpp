// The memory front: blocks, copies, and whole pages.
#include "kivsdu/memory.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <numeric>
#include <vector>

#include "kivsdu/kivsdu.h"
#include "support/context.h"

namespace {

using kiv::test::Context;

constexpr char kFile[] = "memory_test";
void* const kUntouched = reinterpret_cast<void*>(0x5A5A);

unsigned char* Bytes(void* block) { return static_cast<unsigned char*>(block); }

void FillCounting(void* block, size_t sizeBytes) {
  for (size_t i = 0; i < sizeBytes; ++i) Bytes(block)[i] = static_cast<unsigned char>(i * 7 + 1);
}

bool CountsUpTo(void* block, size_t sizeBytes) {
  for (size_t i = 0; i < sizeBytes; ++i) {
    if (Bytes(block)[i] != static_cast<unsigned char>(i * 7 + 1)) return false;
  }
  return true;
}

bool IsZero(const void* block, size_t sizeBytes) {
  const auto* bytes = static_cast<const unsigned char*>(block);
  return std::accumulate(bytes, bytes + sizeBytes, uint64_t{0}) == 0;
}

void* Allocate(uint32_t sizeBytes) {
  void* block = nullptr;
  EXPECT_EQ(KivSdMemAlloc(nullptr, 0, sizeBytes, &block, kFile, 1), KIV_ST_OK);
  return block;
}

// ---- Blocks ----

TEST(MemAlloc, RefusesASizeOfZeroAndLeavesThePointerUnchanged) {
  Context ctx;
  void* block = kUntouched;
  CHECK_ARGUMENT(ctx, KivSdMemAlloc(ctx, 0, 0, &block, kFile, 1));
  CHECK_ARGUMENT(ctx, KivSdMemAllocUsingPolicy(ctx, 0, 0, &block, AD_POLICY_FULL, kFile, 1));
  EXPECT_EQ(block, kUntouched);
}

TEST(MemAlloc, RefusesANullResult) {
  Context ctx;
  CHECK_ARGUMENT(ctx, KivSdMemAlloc(ctx, 0, 8, nullptr, kFile, 1));
  CHECK_ARGUMENT(ctx, KivSdMemAllocUsingPolicy(ctx, 0, 8, nullptr, AD_POLICY_MANDATORY, kFile, 1));
}

TEST(MemAlloc, ReturnsWritableBlocksAlignedForAnyType) {
  Context ctx;
  for (const uint32_t sizeBytes : {1u, 2u, 15u, 16u, 17u, 4096u, 8191u, 8193u, 1u << 20}) {
    void* block = nullptr;
    CHECK_OK(ctx, KivSdMemAlloc(ctx, UINT64_MAX, sizeBytes, &block, kFile, 1));
    ASSERT_NE(block, nullptr);
    EXPECT_EQ(reinterpret_cast<uintptr_t>(block) % alignof(std::max_align_t), 0u);
    FillCounting(block, sizeBytes);
    EXPECT_TRUE(CountsUpTo(block, sizeBytes));
    CHECK_OK(ctx, KivSdMemFree(ctx, block, kFile, 2));
  }
}

TEST(MemAlloc, WorksWithEitherPolicyAndWithoutARecordOrAFileName) {
  for (const uint8_t policy : {uint8_t{AD_POLICY_MANDATORY}, uint8_t{AD_POLICY_FULL}}) {
    Context ctx;
    void* block = nullptr;
    CHECK_OK(ctx, KivSdMemAllocUsingPolicy(ctx, 0, 100, &block, policy, kFile, 1));
    ASSERT_NE(block, nullptr);
    FillCounting(block, 100);
    EXPECT_EQ(KivSdMemFree(nullptr, block, nullptr, 0), KIV_ST_OK);
    block = nullptr;
    EXPECT_EQ(KivSdMemAllocUsingPolicy(nullptr, 0, 100, &block, policy, nullptr, 0), KIV_ST_OK);
    EXPECT_EQ(KivSdMemFree(nullptr, block, nullptr, 0), KIV_ST_OK);
  }
}

TEST(MemFree, RefusesNull) {
  Context ctx;
  CHECK_ARGUMENT(ctx, KivSdMemFree(ctx, nullptr, kFile, 1));
  CHECK_ARGUMENT(ctx, KivSdExtAllocMemFree(ctx, nullptr));
  EXPECT_EQ(KivSdMemFree(nullptr, nullptr, kFile, 1), KIV_ST_ARGUMENT);
  EXPECT_EQ(KivSdExtAllocMemFree(nullptr, nullptr), KIV_ST_ARGUMENT);
}

TEST(MemFree, SharesItsBlocksWithTheRuntimeInPlainMode) {
  Context ctx;
  CHECK_OK(ctx, KivSdExtAllocMemFree(ctx, std::malloc(64)));
  CHECK_OK(ctx, KivSdMemFree(ctx, std::malloc(64), kFile, 1));
  std::free(Allocate(64));
}

TEST(MemRealloc, KeepsTheContentUpToTheSmallerSize) {
  Context ctx;
  void* block = Allocate(100);
  FillCounting(block, 100);
  for (const uint32_t sizeBytes : {5000u, 1u << 20, 101u, 100u}) {
    CHECK_OK(ctx, KivSdMemRealloc(ctx, sizeBytes, block, &block, kFile, 1));
    EXPECT_TRUE(CountsUpTo(block, 100)) << sizeBytes;
    std::memset(Bytes(block) + 100, 0xEE, sizeBytes - 100);
  }
  CHECK_OK(ctx, KivSdMemRealloc(ctx, 1, block, &block, kFile, 1));
  EXPECT_TRUE(CountsUpTo(block, 1));
  EXPECT_EQ(KivSdMemFree(nullptr, block, kFile, 1), KIV_ST_OK);
}

TEST(MemRealloc, OfNullAllocates) {
  Context ctx;
  void* block = nullptr;
  CHECK_OK(ctx, KivSdMemRealloc(ctx, 100, nullptr, &block, kFile, 1));
  ASSERT_NE(block, nullptr);
  FillCounting(block, 100);
  EXPECT_EQ(KivSdMemFree(nullptr, block, kFile, 1), KIV_ST_OK);
}

TEST(MemRealloc, RefusesASizeOfZeroForAnyOtherArguments) {
  Context ctx;
  void* old = Allocate(8);
  void* out = kUntouched;
  CHECK_ARGUMENT(ctx, KivSdMemRealloc(ctx, 0, old, &out, kFile, 1));
  CHECK_ARGUMENT(ctx, KivSdMemRealloc(ctx, 0, nullptr, &out, kFile, 1));
  CHECK_ARGUMENT(ctx, KivSdMemRealloc(ctx, 0, nullptr, nullptr, kFile, 1));
  EXPECT_EQ(out, kUntouched);
  EXPECT_EQ(KivSdMemFree(nullptr, old, kFile, 1), KIV_ST_OK);
}

TEST(MemRealloc, RefusesANullResultAndLeavesTheBlockUnchanged) {
  Context ctx;
  void* old = Allocate(8);
  FillCounting(old, 8);
  CHECK_ARGUMENT(ctx, KivSdMemRealloc(ctx, 100, old, nullptr, kFile, 1));
  CHECK_ARGUMENT(ctx, KivSdMemRealloc(ctx, 100, nullptr, nullptr, kFile, 1));
  EXPECT_TRUE(CountsUpTo(old, 8));
  EXPECT_EQ(KivSdMemFree(nullptr, old, kFile, 1), KIV_ST_OK);
}

TEST(Manager, AllocatesResizesAndFrees) {
  void* block = nullptr;
  ASSERT_EQ(adMalloc(nullptr, 100, &block, kFile, 1), KIV_ST_OK);
  FillCounting(block, 100);
  void* moved = nullptr;
  ASSERT_EQ(adRealloc(nullptr, 100000, block, &moved, kFile, 1), KIV_ST_OK);
  EXPECT_TRUE(CountsUpTo(moved, 100));
  EXPECT_EQ(adFree(moved, kFile, 1), KIV_ST_OK);
  ASSERT_EQ(adRealloc(nullptr, 8, nullptr, &block, kFile, 1), KIV_ST_OK);
  EXPECT_EQ(adFree(block, kFile, 1), KIV_ST_OK);
}

TEST(Manager, RefusesASizeOfZeroAndANullBlock) {
  void* block = kUntouched;
  EXPECT_EQ(adMalloc(nullptr, 0, &block, kFile, 1), KIV_ST_ARGUMENT);
  EXPECT_EQ(adMallocPolicy(nullptr, 0, &block, AD_POLICY_FULL, kFile, 1), KIV_ST_ARGUMENT);
  EXPECT_EQ(adRealloc(nullptr, 0, nullptr, &block, kFile, 1), KIV_ST_ARGUMENT);
  EXPECT_EQ(block, kUntouched);
  EXPECT_EQ(adFree(nullptr, kFile, 1), KIV_ST_ARGUMENT);
}

// ---- Copies ----

TEST(MemCopy, CopiesExactlyTheLength) {
  unsigned char from[16];
  FillCounting(from, sizeof from);
  unsigned char to[18] = {};
  EXPECT_EQ(KivSdMemCopy(nullptr, to + 1, from, sizeof from), KIV_ST_OK);
  EXPECT_TRUE(CountsUpTo(to + 1, sizeof from));
  EXPECT_EQ(to[0], 0);
  EXPECT_EQ(to[17], 0);
}

TEST(MemCopy, MovesOverlappingAreasInBothDirections) {
  for (const size_t length : {1u, 7u, 64u, 1000u}) {
    for (const size_t shift : {1u, 3u, 33u}) {
      std::vector<unsigned char> up(length + shift);
      FillCounting(up.data(), length);
      EXPECT_EQ(KivSdMemCopy(nullptr, up.data() + shift, up.data(), static_cast<uint32_t>(length)),
                KIV_ST_OK);
      EXPECT_TRUE(CountsUpTo(up.data() + shift, length));

      std::vector<unsigned char> down(length + shift);
      FillCounting(down.data() + shift, length);
      EXPECT_EQ(
          KivSdMemCopy(nullptr, down.data(), down.data() + shift, static_cast<uint32_t>(length)),
          KIV_ST_OK);
      EXPECT_TRUE(CountsUpTo(down.data(), length));
    }
  }
}

TEST(MemCopy, DoesNothingWithANullOrAZeroLength) {
  char from = 1;
  char to = 2;
  EXPECT_EQ(KivSdMemCopy(nullptr, nullptr, &from, 1), KIV_ST_OK);
  EXPECT_EQ(KivSdMemCopy(nullptr, &to, nullptr, 1), KIV_ST_OK);
  EXPECT_EQ(KivSdMemCopy(nullptr, &to, &from, 0), KIV_ST_OK);
  EXPECT_EQ(to, 2);
}

TEST(MemCopy, NeverWritesTheRecord) {
  const Context untouched;
  Context ctx;
  char from = 1;
  char to = 2;
  EXPECT_EQ(KivSdMemCopy(ctx, &to, &from, 1), KIV_ST_OK);
  EXPECT_EQ(KivSdMemCopy(ctx, nullptr, &from, 1), KIV_ST_OK);
  EXPECT_EQ(KivSdMemCopy(ctx, &to, &from, 0), KIV_ST_OK);
  EXPECT_TRUE(ctx.IsUntouched());
  EXPECT_EQ(to, 1);
}

TEST(MemClear, ZeroesExactlyTheLength) {
  Context ctx;
  unsigned char area[10];
  std::memset(area, 0xFF, sizeof area);
  CHECK_OK(ctx, KivSdMemClear(ctx, area + 1, 8));
  EXPECT_TRUE(IsZero(area + 1, 8));
  EXPECT_EQ(area[0], 0xFF);
  EXPECT_EQ(area[9], 0xFF);
}

// Long blocks are cleared by other instructions than short ones.
TEST(MemClear, ZeroesExactlyAnyLength) {
  constexpr size_t kMost = 1100;
  Context ctx;
  std::vector<unsigned char> area(kMost + 2);
  for (uint32_t length = 1; length <= kMost; ++length) {
    std::fill(area.begin(), area.end(), 0xFF);
    CHECK_OK(ctx, KivSdMemClear(ctx, area.data() + 1, length));
    EXPECT_TRUE(IsZero(area.data() + 1, length)) << length;
    EXPECT_EQ(area[0], 0xFF) << length;
    EXPECT_EQ(area[length + 1], 0xFF) << length;
  }
}

TEST(MemClear, AcceptsALengthOfZeroButNotNull) {
  Context ctx;
  char byte = 1;
  CHECK_OK(ctx, KivSdMemClear(ctx, &byte, 0));
  EXPECT_EQ(byte, 1);
  CHECK_ARGUMENT(ctx, KivSdMemClear(ctx, nullptr, 0));
  CHECK_ARGUMENT(ctx, KivSdMemClear(ctx, nullptr, 1));
  EXPECT_EQ(KivSdMemClear(nullptr, nullptr, 0), KIV_ST_ARGUMENT);
}

TEST(MemPageLocking, IsAvailable) {
  Context ctx;
  uint8_t available = 7;
  CHECK_OK(ctx, KivSdIsMemPageLocking(ctx, UINT64_MAX, &available));
  EXPECT_EQ(available, 1);
}

}  // namespace
