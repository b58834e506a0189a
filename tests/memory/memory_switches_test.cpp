// The memory manager's switches. The no-free switch cannot be turned off, so that every test runs
// in its own process.
#include <gtest/gtest.h>

#include <cstring>

#include "kivsdu/kivsdu.h"
#include "support/context.h"
#include "support/process.h"

namespace {

using kiv::test::Context;

constexpr char kFile[] = "memory_switches_test";

// Allocates a block that holds a text.
char* Block() {
  void* block = nullptr;
  EXPECT_EQ(adMalloc(nullptr, 64, &block, kFile, 1), KIV_ST_OK);
  std::strcpy(static_cast<char*>(block), "still here");
  return static_cast<char*>(block);
}

TEST(NoFreeSwitch, CannotBeTurnedOnWhenTheLibraryIsLoaded) {
  IN_FRESH_PROCESS([] {
    EXPECT_EQ(KivSdSetMemDeallocOption(), 0u);
    EXPECT_EQ(adFree(nullptr, kFile, 1), KIV_ST_ARGUMENT);
    EXPECT_EQ(adFree(Block(), kFile, 1), KIV_ST_OK);
  });
}

TEST(NoFreeSwitch, NeedsAManagerSwitchOfExactlyOne) {
  IN_FRESH_PROCESS([] {
    for (const uint32_t flag : {2u, 3u, 128u, 129u, 255u, 0u}) {
      KivSdSetMemoryManager(static_cast<uint8_t>(flag));
      EXPECT_EQ(KivSdSetMemDeallocOption(), 0u) << flag;
    }
    EXPECT_EQ(adFree(nullptr, kFile, 1), KIV_ST_ARGUMENT);
    KivSdSetMemoryManager(1);
    EXPECT_EQ(KivSdSetMemDeallocOption(), 1u);
  });
}

TEST(NoFreeSwitch, IsNotTurnedOnByTheManagerSwitchAlone) {
  IN_FRESH_PROCESS([] {
    KivSdSetMemoryManager(1);
    EXPECT_EQ(adFree(nullptr, kFile, 1), KIV_ST_ARGUMENT);
  });
}

TEST(NoFreeSwitch, LeavesEveryBlockUnchangedAndAcceptsNull) {
  IN_FRESH_PROCESS([] {
    KivSdSetMemoryManager(1);
    char* block = Block();
    EXPECT_EQ(KivSdSetMemDeallocOption(), 1u);
    EXPECT_EQ(adFree(block, kFile, 1), KIV_ST_OK);
    EXPECT_STREQ(block, "still here");
    EXPECT_EQ(adFree(block, kFile, 1), KIV_ST_OK);
    EXPECT_STREQ(block, "still here");
    EXPECT_EQ(adFree(nullptr, kFile, 1), KIV_ST_OK);
  });
}

TEST(NoFreeSwitch, PutsNoBlockIntoTheCacheOfAThread) {
  IN_FRESH_PROCESS([] {
    KivSdSetMemoryManager(1);
    ASSERT_EQ(adCreateThreadAlloc(), KIV_ST_OK);
    char* cached = Block();
    char* kept = Block();
    EXPECT_EQ(adFree(cached, kFile, 1), KIV_ST_OK);
    EXPECT_EQ(KivSdSetMemDeallocOption(), 1u);
    EXPECT_EQ(adFree(kept, kFile, 1), KIV_ST_OK);
    EXPECT_EQ(Block(), cached);
    EXPECT_NE(Block(), kept);
  });
}

TEST(NoFreeSwitch, StaysOnWhenTheManagerSwitchGoesOff) {
  IN_FRESH_PROCESS([] {
    KivSdSetMemoryManager(1);
    EXPECT_EQ(KivSdSetMemDeallocOption(), 1u);
    EXPECT_EQ(KivSdSetMemDeallocOption(), 1u);
    KivSdSetMemoryManager(0);
    EXPECT_EQ(KivSdSetMemDeallocOption(), 1u);
    EXPECT_EQ(adFree(nullptr, kFile, 1), KIV_ST_OK);
  });
}

TEST(NoFreeSwitch, DoesNotChangeArgumentChecksAndAllocations) {
  IN_FRESH_PROCESS([] {
    KivSdSetMemoryManager(1);
    EXPECT_EQ(KivSdSetMemDeallocOption(), 1u);
    Context ctx;
    CHECK_ARGUMENT(ctx, KivSdMemFree(ctx, nullptr, kFile, 1));
    char* block = Block();
    CHECK_OK(ctx, KivSdMemFree(ctx, block, kFile, 1));
    EXPECT_STREQ(block, "still here");
    void* moved = nullptr;
    CHECK_OK(ctx, KivSdMemRealloc(ctx, 100000, block, &moved, kFile, 1));
    EXPECT_STREQ(static_cast<char*>(moved), "still here");
    KivSdContext* record = nullptr;
    EXPECT_EQ(KivSdInit(&record), KIV_ST_OK);
    EXPECT_EQ(KivSdTerm(record), KIV_ST_OK);
    EXPECT_EQ(KivSdTerm(nullptr), KIV_ST_ARGUMENT);
  });
}

TEST(MappedAllocationSetting, ChangesNothing) {
  IN_FRESH_PROCESS([] {
    for (const uint32_t setting : {1u, 255u, 0u}) {
      KivSdSetMmapAllocCfg(static_cast<uint8_t>(setting));
      EXPECT_EQ(KivSdSetMemDeallocOption(), 0u);
      EXPECT_EQ(adFree(nullptr, kFile, 1), KIV_ST_ARGUMENT);
      EXPECT_EQ(adFree(Block(), kFile, 1), KIV_ST_OK);
    }
  });
}

}  // namespace
