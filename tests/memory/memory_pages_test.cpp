// Whole pages of the memory front: locked pages and aligned pages.
#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <random>
#include <vector>

#include "kivsdu/kivsdu.h"
#include "support/context.h"

namespace {

using kiv::test::Context;

// The smallest count whose size in bytes wraps to 0 in 32 bits.
constexpr uint32_t kWrappingCount = 524288;

// The operations of one kind of pages.
struct PageKind {
  const char* name;
  uint32_t (*allocate)(KivSdContext*, uint32_t, void**);
  uint32_t (*free)(KivSdContext*, void*);
  uint32_t (*reallocate)(KivSdContext*, uint32_t, uint32_t, void**);
  uint32_t commitFailure;
  uint32_t releaseFailure;
};

const PageKind kKinds[] = {
    {"Locked", KivSdPhysMemAlloc, KivSdPhysMemFree, KivSdPhysMemRealloc, KIV_ST_PAGE_COMMIT,
     KIV_ST_PAGE_RELEASE},
    {"Aligned", KivSdAlignedMemAlloc, KivSdAlignedMemFree, KivSdAlignedMemRealloc,
     KIV_ST_ALIGNED_COMMIT, KIV_ST_ALIGNED_RELEASE},
};

bool AllBytesAre(const void* block, unsigned char value, size_t sizeBytes) {
  const auto* bytes = static_cast<const unsigned char*>(block);
  return std::all_of(bytes, bytes + sizeBytes, [&](unsigned char byte) { return byte == value; });
}

// Expects that an operation failed with this status and an OS error.
void ExpectSystemFailure(const Context& ctx, uint32_t returned, uint32_t status) {
  EXPECT_EQ(returned, status);
  EXPECT_EQ(ctx.status(), status);
  EXPECT_NE(ctx.osError(), 0u);
  EXPECT_NE(ctx.osError(), Context::kOldError);
}

class Pages : public testing::TestWithParam<PageKind> {
 protected:
  void* Allocate(uint32_t count) {
    void* pages = nullptr;
    EXPECT_EQ(GetParam().allocate(nullptr, count, &pages), KIV_ST_OK);
    return pages;
  }

  void Free(void* pages) { EXPECT_EQ(GetParam().free(nullptr, pages), KIV_ST_OK); }

  Context ctx_;
};

TEST_P(Pages, AreFreshZeroedWritableAndAligned) {
  uint32_t pageBytes = 0;
  ASSERT_EQ(KivSdPageSizeGet(nullptr, &pageBytes), KIV_ST_OK);
  for (const uint32_t count : {1u, 2u, 9u}) {
    const size_t sizeBytes = size_t{count} * KIV_PAGE_UNIT;
    void* pages = nullptr;
    CHECK_OK(ctx_, GetParam().allocate(ctx_, count, &pages));
    ASSERT_NE(pages, nullptr);
    EXPECT_EQ(reinterpret_cast<uintptr_t>(pages) % pageBytes, 0u);
    EXPECT_TRUE(AllBytesAre(pages, 0, sizeBytes));
    std::memset(pages, 0xA5, sizeBytes);
    EXPECT_TRUE(AllBytesAre(pages, 0xA5, sizeBytes));
    CHECK_OK(ctx_, GetParam().free(ctx_, pages));
  }
}

TEST_P(Pages, AreRefusedByTheSystemWhenTheSizeIsZeroOrWrapsToZero) {
  for (const uint32_t count : {0u, kWrappingCount, 2 * kWrappingCount}) {
    void* pages = &pages;
    ctx_.Spoil();
    ExpectSystemFailure(ctx_, GetParam().allocate(ctx_, count, &pages), GetParam().commitFailure);
    EXPECT_EQ(pages, nullptr) << count;
  }
}

TEST_P(Pages, OfACountThatWrapsHaveTheWrappedSize) {
  void* pages = nullptr;
  CHECK_OK(ctx_, GetParam().allocate(ctx_, kWrappingCount + 1, &pages));
  std::memset(pages, 1, KIV_PAGE_UNIT);
  CHECK_OK(ctx_, GetParam().free(ctx_, pages));
}

TEST_P(Pages, RefuseANullResult) {
  CHECK_ARGUMENT(ctx_, GetParam().allocate(ctx_, 1, nullptr));
  CHECK_ARGUMENT(ctx_, GetParam().allocate(ctx_, 0, nullptr));
  EXPECT_EQ(GetParam().allocate(nullptr, 1, nullptr), KIV_ST_ARGUMENT);
}

TEST_P(Pages, FreeRefusesNull) {
  CHECK_ARGUMENT(ctx_, GetParam().free(ctx_, nullptr));
  EXPECT_EQ(GetParam().free(nullptr, nullptr), KIV_ST_ARGUMENT);
}

TEST_P(Pages, AreNotReleasedByAnAddressInTheirMiddle) {
  void* pages = Allocate(2);
  ctx_.Spoil();
  ExpectSystemFailure(ctx_,
                      GetParam().free(ctx_, static_cast<unsigned char*>(pages) + KIV_PAGE_UNIT),
                      GetParam().releaseFailure);
  EXPECT_TRUE(AllBytesAre(pages, 0, 2 * KIV_PAGE_UNIT));
  Free(pages);
}

// More than a table of a fixed size would hold, released in an order that leaves gaps.
TEST_P(Pages, OfManyCallsAreReleasedOnceEach) {
  constexpr size_t kCalls = 2000;
  std::vector<unsigned char*> blocks;
  for (size_t i = 0; i < kCalls; ++i) {
    blocks.push_back(static_cast<unsigned char*>(Allocate(1)));
    blocks.back()[0] = static_cast<unsigned char>(i);
  }
  for (size_t i = 0; i < kCalls; i += 2) Free(blocks[i]);
  for (size_t i = 1; i < kCalls; i += 2) {
    EXPECT_EQ(blocks[i][0], static_cast<unsigned char>(i)) << i;
    Free(blocks[i]);
    EXPECT_EQ(GetParam().free(nullptr, blocks[i]), GetParam().releaseFailure) << i;
  }
}

// Sizes and an order without a pattern: the addresses then meet in whatever table holds them.
TEST_P(Pages, OfManySizesAreReleasedInAnyOrder) {
  constexpr uint32_t kCalls = 3000;
  constexpr uint32_t kMostPages = 13;
  std::minstd_rand random(1);
  std::vector<void*> blocks;
  for (uint32_t i = 0; i < kCalls; ++i) blocks.push_back(Allocate(1 + random() % kMostPages));
  std::shuffle(blocks.begin(), blocks.end(), random);
  for (void* block : blocks) Free(block);
  for (void* block : blocks) {
    EXPECT_EQ(GetParam().free(nullptr, block), GetParam().releaseFailure);
  }
}

TEST_P(Pages, KeepTheirContentWhenTheyGrow) {
  void* pages = Allocate(2);
  std::memset(pages, 0x3C, 2 * KIV_PAGE_UNIT);
  CHECK_OK(ctx_, GetParam().reallocate(ctx_, 2, 5, &pages));
  EXPECT_TRUE(AllBytesAre(pages, 0x3C, 2 * KIV_PAGE_UNIT));
  EXPECT_TRUE(
      AllBytesAre(static_cast<unsigned char*>(pages) + 2 * KIV_PAGE_UNIT, 0, 3 * KIV_PAGE_UNIT));
  std::memset(pages, 1, 5 * KIV_PAGE_UNIT);
  Free(pages);
}

TEST_P(Pages, OfTheSameCountMove) {
  void* pages = Allocate(1);
  void* const old = pages;
  std::memset(pages, 0x3C, KIV_PAGE_UNIT);
  EXPECT_EQ(GetParam().reallocate(nullptr, 1, 1, &pages), KIV_ST_OK);
  EXPECT_NE(pages, old);
  EXPECT_TRUE(AllBytesAre(pages, 0x3C, KIV_PAGE_UNIT));
  Free(pages);
}

TEST_P(Pages, CopyExactlyTheOldCount) {
  void* pages = Allocate(2);
  std::memset(pages, 0x3C, 2 * KIV_PAGE_UNIT);
  CHECK_OK(ctx_, GetParam().reallocate(ctx_, 1, 2, &pages));
  EXPECT_TRUE(AllBytesAre(pages, 0x3C, KIV_PAGE_UNIT));
  EXPECT_TRUE(AllBytesAre(static_cast<unsigned char*>(pages) + KIV_PAGE_UNIT, 0, KIV_PAGE_UNIT));
  Free(pages);
}

TEST_P(Pages, StayWhereTheyAreWhenTheNewOnesAreRefused) {
  void* pages = Allocate(1);
  void* const old = pages;
  std::memset(pages, 0x3C, KIV_PAGE_UNIT);
  for (const uint32_t count : {0u, kWrappingCount}) {
    ctx_.Spoil();
    ExpectSystemFailure(ctx_, GetParam().reallocate(ctx_, 1, count, &pages),
                        GetParam().commitFailure);
    EXPECT_EQ(pages, old);
    EXPECT_TRUE(AllBytesAre(pages, 0x3C, KIV_PAGE_UNIT));
  }
  Free(pages);
}

TEST_P(Pages, ThatAreNullCannotBeMoved) {
  void* pages = nullptr;
  CHECK_ARGUMENT(ctx_, GetParam().reallocate(ctx_, 1, 1, &pages));
  EXPECT_EQ(pages, nullptr);
}

INSTANTIATE_TEST_SUITE_P(Both, Pages, testing::ValuesIn(kKinds),
                         [](const auto& kind) { return kind.param.name; });

TEST(LockedPages, ReallocationRefusesANullResult) {
  Context ctx;
  CHECK_ARGUMENT(ctx, KivSdPhysMemRealloc(ctx, 1, 1, nullptr));
}

TEST(PageLock, LocksAndUnlocks) {
  Context ctx;
  void* pages = nullptr;
  ASSERT_EQ(KivSdAlignedMemAlloc(nullptr, 2, &pages), KIV_ST_OK);
  CHECK_OK(ctx, KivSdMemLock(ctx, 2, pages));
  CHECK_OK(ctx, KivSdMemUnlock(ctx, 2, pages));
  EXPECT_EQ(KivSdMemLock(nullptr, 1, pages), KIV_ST_OK);
  EXPECT_EQ(KivSdMemUnlock(nullptr, 1, pages), KIV_ST_OK);
  EXPECT_EQ(KivSdAlignedMemFree(nullptr, pages), KIV_ST_OK);
}

#ifndef _WIN32
// Windows decides itself about a size of 0.
TEST(PageLock, RefusesACountWhoseSizeWrapsToZero) {
  Context ctx;
  alignas(16) char area[16] = {};
  CHECK_OUTCOME(ctx, KivSdMemLock(ctx, kWrappingCount, area), KIV_ST_PAGE_LOCK, EINVAL);
  CHECK_OUTCOME(ctx, KivSdMemUnlock(ctx, kWrappingCount, area), KIV_ST_PAGE_UNLOCK, EINVAL);
}
#endif

TEST(PageLock, RefusesANullAddressAndACountOfZero) {
  Context ctx;
  alignas(16) char area[16] = {};
  CHECK_ARGUMENT(ctx, KivSdMemLock(ctx, 1, nullptr));
  CHECK_ARGUMENT(ctx, KivSdMemLock(ctx, 0, area));
  CHECK_ARGUMENT(ctx, KivSdMemLock(ctx, 0, nullptr));
  CHECK_ARGUMENT(ctx, KivSdMemUnlock(ctx, 1, nullptr));
  CHECK_ARGUMENT(ctx, KivSdMemUnlock(ctx, 0, area));
  EXPECT_EQ(KivSdMemLock(nullptr, 0, area), KIV_ST_ARGUMENT);
  EXPECT_EQ(KivSdMemUnlock(nullptr, 1, nullptr), KIV_ST_ARGUMENT);
}

}  // namespace
