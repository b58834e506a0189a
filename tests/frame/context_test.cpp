// The context record, the last error, and the function bodies that several exports share.
#include <gtest/gtest.h>

#include <cstring>

#include "kivsdu/kivsdu.h"
#include "support/context.h"

namespace {

using kiv::test::Context;

TEST(Context, IsRefusedWithoutAResultPointer) { EXPECT_EQ(KivSdInit(nullptr), KIV_ST_ARGUMENT); }

TEST(Context, IsZeroedWhenFresh) {
  KivSdContext* ctx = nullptr;
  ASSERT_EQ(KivSdInit(&ctx), KIV_ST_OK);
  ASSERT_NE(ctx, nullptr);
  EXPECT_EQ(ctx->status, 0u);
  EXPECT_EQ(ctx->osError, 0u);
  EXPECT_EQ(ctx->reserved, 0u);
  EXPECT_EQ(KivSdTerm(ctx), KIV_ST_OK);
}

TEST(Context, TermRefusesNull) { EXPECT_EQ(KivSdTerm(nullptr), KIV_ST_ARGUMENT); }

TEST(Context, SuccessClearsAnOlderFailure) {
  Context ctx;
  char byte = 1;
  CHECK_OK(ctx, KivSdMemClear(ctx, &byte, 1));
}

TEST(Context, ArgumentErrorsRecordNoOsError) {
  Context ctx;
  CHECK_ARGUMENT(ctx, KivSdMemClear(ctx, nullptr, 1));
}

TEST(LastError, RefusesANullRecord) {
  char text[16];
  uint32_t osError = 7;
  EXPECT_EQ(KivSdLastErrGet(nullptr, sizeof text, text, &osError), KIV_ST_ARGUMENT);
  EXPECT_EQ(osError, 7u);
}

TEST(LastError, WritesTheNumberInDecimal) {
  const KivSdContext ctx = {KIV_ST_PAGE_LOCK, 1453, 0};
  char text[16];
  uint32_t osError = 0;
  EXPECT_EQ(KivSdLastErrGet(&ctx, sizeof text, text, &osError), KIV_ST_OK);
  EXPECT_STREQ(text, "1453");
  EXPECT_EQ(osError, 1453u);
  EXPECT_EQ(ctx.status, KIV_ST_PAGE_LOCK);
}

TEST(LastError, WritesTheNumberWithItsSign) {
  const KivSdContext ctx = {1, 0x80000000u, 0};
  char text[12];
  EXPECT_EQ(KivSdLastErrGet(&ctx, sizeof text, text, nullptr), KIV_ST_OK);
  EXPECT_STREQ(text, "-2147483648");
}

TEST(LastError, WritesNoTextIntoALengthOfZeroOrOne) {
  const KivSdContext ctx = {1, 1453, 0};
  for (const uint32_t length : {0u, 1u}) {
    char text[] = "untouched";
    uint32_t osError = 0;
    EXPECT_EQ(KivSdLastErrGet(&ctx, length, text, &osError), KIV_ST_OK);
    EXPECT_STREQ(text, "untouched");
    EXPECT_EQ(osError, 1453u);
  }
}

TEST(LastError, LengthOfTwoWritesTheWholeNumber) {
  const KivSdContext ctx = {1, 0x80000000u, 0};
  char text[12];
  EXPECT_EQ(KivSdLastErrGet(&ctx, 2, text, nullptr), KIV_ST_OK);
  EXPECT_STREQ(text, "-2147483648");
}

TEST(LastError, AcceptsNullTextAndNullNumber) {
  const KivSdContext ctx = {1, 5, 0};
  EXPECT_EQ(KivSdLastErrGet(&ctx, 16, nullptr, nullptr), KIV_ST_OK);
}

using SharedEntry = uint32_t (*)(KivSdContext*, ...);

const SharedEntry kNotSupported[] = {
    KivSdConsoleRead,
    KivSdMemFixedAlloc,
    KivSdMemFixedFree,
    KivSdMemPoolFixedInit,
    KivSdMemPoolFixedTerm,
    KivSdThreadConcurrencyLevGet,
    KivSdThreadConcurrencyLevSet,
    KivSdUIResStringAllocLoad,
    KivSdUIResStringLoad,
};

const SharedEntry kNothingToDo[] = {
    KivSdMemInit,  KivSdMemTerm,          KivSdMemPoolInit, KivSdMemPoolTerm,
    KivSdFileLock, KivSdFileLockProcInfo, KivSdFileUnlock,
};

TEST(SharedEntry, NotSupportedIgnoresItsArguments) {
  Context ctx;
  for (const SharedEntry entry : kNotSupported) {
    CHECK_OUTCOME(ctx, entry(ctx, 1, 2, 3, 4), KIV_ST_NOT_SUPPORTED, 0u);
    EXPECT_EQ(entry(nullptr), KIV_ST_NOT_SUPPORTED);
  }
}

TEST(SharedEntry, NothingToDoClearsTheRecord) {
  Context ctx;
  for (const SharedEntry entry : kNothingToDo) {
    CHECK_OK(ctx, entry(ctx, 1, 2, 3, 4));
    EXPECT_EQ(entry(nullptr), KIV_ST_OK);
  }
}

}  // namespace
