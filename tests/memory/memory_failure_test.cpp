// The system calls of the memory front, and its results when they fail.
#include <gtest/gtest.h>

#include <cstring>

#include "kivsdu/kivsdu.h"
#include "support/context.h"
#include "support/import_patch.h"
#include "support/os_errors.h"
#include "support/process.h"

#ifndef _WIN32
// An allocation too large for any machine returns null, as without a sanitizer.
extern "C" const char* __asan_default_options() { return "allocator_may_return_null=1"; }
extern "C" const char* __tsan_default_options() { return "allocator_may_return_null=1"; }
#endif

namespace {

using kiv::test::Context;
using kiv::test::kOsLockQuota;
using kiv::test::Script;
using kiv::test::ScriptedImport;

constexpr char kFile[] = "memory_failure_test";
constexpr uintptr_t kCommit = 0x1000;
constexpr uintptr_t kReadWrite = 0x04;
constexpr uintptr_t kRelease = 0x8000;
const Script kPassThrough = {.failCount = 0};
const Script kNoMemory = {.result = 0, .error = 8};
void* const kUntouched = reinterpret_cast<void*>(0x5A5A);

uintptr_t Number(const void* address) { return reinterpret_cast<uintptr_t>(address); }

// Expects a call that committed sizeBytes read-write bytes at any address.
void ExpectCommit(const ScriptedImport::Arguments& call, uintptr_t sizeBytes) {
  EXPECT_EQ(call[0], 0u);
  EXPECT_EQ(call[1], sizeBytes);
  EXPECT_EQ(static_cast<uint32_t>(call[2]), kCommit);
  EXPECT_EQ(static_cast<uint32_t>(call[3]), kReadWrite);
}

// Expects a call that released the whole block.
void ExpectRelease(const ScriptedImport::Arguments& call, const void* block) {
  EXPECT_EQ(call[0], Number(block));
  EXPECT_EQ(call[1], 0u);
  EXPECT_EQ(static_cast<uint32_t>(call[2]), kRelease);
}

// ---- Blocks ----

TEST(MemFailure, NoMemoryYieldsNullAndTheSystemsError) {
  Context ctx;
  void* block = kUntouched;
  const ScriptedImport malloc("malloc", {.result = 0, .error = 1455});
  CHECK_OUTCOME(ctx, KivSdMemAlloc(ctx, 0, 100, &block, kFile, 1), KIV_ST_OUT_OF_MEMORY, 1455u);
  EXPECT_EQ(block, nullptr);
  block = kUntouched;
  CHECK_OUTCOME(ctx, KivSdMemAllocUsingPolicy(ctx, 0, UINT32_MAX, &block, AD_POLICY_FULL, kFile, 1),
                KIV_ST_OUT_OF_MEMORY, 1455u);
  EXPECT_EQ(block, nullptr);
  EXPECT_EQ(KivSdMemAlloc(nullptr, 0, 1, &block, kFile, 1), KIV_ST_OUT_OF_MEMORY);
  ASSERT_EQ(malloc.calls().size(), 3u);
  EXPECT_EQ(malloc.calls()[0][0], 100u);
  EXPECT_EQ(malloc.calls()[1][0], UINT32_MAX);
}

TEST(MemFailure, ArgumentErrorsDoNotReachTheAllocator) {
  void* block = nullptr;
  const ScriptedImport malloc("malloc", kNoMemory);
  const ScriptedImport realloc("realloc", kNoMemory);
  EXPECT_EQ(KivSdMemAlloc(nullptr, 0, 0, &block, kFile, 1), KIV_ST_ARGUMENT);
  EXPECT_EQ(KivSdMemAlloc(nullptr, 0, 1, nullptr, kFile, 1), KIV_ST_ARGUMENT);
  EXPECT_EQ(KivSdMemRealloc(nullptr, 0, &block, &block, kFile, 1), KIV_ST_ARGUMENT);
  EXPECT_EQ(KivSdMemRealloc(nullptr, 1, &block, nullptr, kFile, 1), KIV_ST_ARGUMENT);
  EXPECT_EQ(adRealloc(nullptr, 0, &block, &block, kFile, 1), KIV_ST_ARGUMENT);
  EXPECT_TRUE(malloc.calls().empty());
  EXPECT_TRUE(realloc.calls().empty());
}

TEST(MemFailure, AFailedReallocationLeavesTheOldBlockAndTheResultUnchanged) {
  Context ctx;
  void* old = nullptr;
  ASSERT_EQ(KivSdMemAlloc(nullptr, 0, 16, &old, kFile, 1), KIV_ST_OK);
  std::strcpy(static_cast<char*>(old), "still here");
  void* out = kUntouched;
  {
    const ScriptedImport realloc("realloc", {.result = 0, .error = 1455});
    CHECK_OUTCOME(ctx, KivSdMemRealloc(ctx, 500, old, &out, kFile, 1), KIV_ST_OUT_OF_MEMORY, 1455u);
    ASSERT_EQ(realloc.calls().size(), 1u);
    EXPECT_EQ(realloc.calls()[0][0], Number(old));
    EXPECT_EQ(realloc.calls()[0][1], 500u);
  }
  EXPECT_EQ(out, kUntouched);
  EXPECT_STREQ(static_cast<char*>(old), "still here");
  EXPECT_EQ(KivSdMemFree(nullptr, old, kFile, 1), KIV_ST_OK);
}

TEST(MemFailure, AFailedReallocationOfNullYieldsNull) {
  Context ctx;
  void* out = kUntouched;
  const ScriptedImport malloc("malloc", kNoMemory);
  CHECK_OUTCOME(ctx, KivSdMemRealloc(ctx, 500, nullptr, &out, kFile, 1), KIV_ST_OUT_OF_MEMORY, 8u);
  EXPECT_EQ(out, nullptr);
}

TEST(MemFailure, TheManagerReportsNoMemory) {
  void* block = kUntouched;
  EXPECT_EQ(adMalloc(nullptr, UINT64_MAX / 2, &block, kFile, 1), KIV_ST_OUT_OF_MEMORY);
  EXPECT_EQ(block, nullptr);
  void* old = nullptr;
  ASSERT_EQ(adMalloc(nullptr, 16, &old, kFile, 1), KIV_ST_OK);
  block = kUntouched;
  EXPECT_EQ(adRealloc(nullptr, UINT64_MAX / 2, old, &block, kFile, 1), KIV_ST_OUT_OF_MEMORY);
  EXPECT_EQ(block, nullptr);
  EXPECT_EQ(adFree(old, kFile, 1), KIV_ST_OK);
}

TEST(MemFree, ReachesTheRuntimeUntilFreeingIsTurnedOff) {
  IN_FRESH_PROCESS([] {
    const ScriptedImport free("free", kPassThrough);
    void* blocks[3] = {};
    for (void*& block : blocks) EXPECT_EQ(adMalloc(nullptr, 16, &block, kFile, 1), KIV_ST_OK);
    EXPECT_EQ(KivSdSetMemDeallocOption(), 0u);
    EXPECT_EQ(KivSdMemFree(nullptr, blocks[0], kFile, 1), KIV_ST_OK);
    EXPECT_EQ(free.calls().size(), 1u);
    KivSdSetMemoryManager(1);
    EXPECT_EQ(KivSdSetMemDeallocOption(), 1u);
    EXPECT_EQ(KivSdMemFree(nullptr, blocks[1], kFile, 1), KIV_ST_OK);
    EXPECT_EQ(adFree(blocks[1], kFile, 1), KIV_ST_OK);
    EXPECT_EQ(free.calls().size(), 1u);
    EXPECT_EQ(KivSdExtAllocMemFree(nullptr, blocks[2]), KIV_ST_OK);  // ignores the no-free switch
    EXPECT_EQ(free.calls().size(), 2u);
  });
}

// ---- Whole pages ----

TEST(PageSizes, AreCountsShiftedIn32Bits) {
  const struct {
    uint32_t count;
    uintptr_t sizeBytes;
  } cases[] = {{0, 0},          {1, 8192},           {524287, 0xFFFFE000},
               {524288, 0},     {524289, 8192},      {UINT32_MAX, 0xFFFFE000},
               {0x80000000, 0}, {262144, 0x80000000}};
  for (const auto& [count, sizeBytes] : cases) {
    Context ctx;
    void* pages = kUntouched;
    const ScriptedImport commit("VirtualAlloc", {.result = 0, .error = 87});
    CHECK_OUTCOME(ctx, KivSdPhysMemAlloc(ctx, count, &pages), KIV_ST_PAGE_COMMIT, 87u);
    EXPECT_EQ(pages, nullptr);
    pages = kUntouched;
    CHECK_OUTCOME(ctx, KivSdAlignedMemAlloc(ctx, count, &pages), KIV_ST_ALIGNED_COMMIT, 87u);
    EXPECT_EQ(pages, nullptr);
    ASSERT_EQ(commit.calls().size(), 2u);
    for (const ScriptedImport::Arguments& call : commit.calls()) ExpectCommit(call, sizeBytes);

    const ScriptedImport lock("VirtualLock", {.result = 1});
    const ScriptedImport unlock("VirtualUnlock", {.result = 1});
    if (count == 0) continue;
    CHECK_OK(ctx, KivSdMemLock(ctx, count, &pages));
    CHECK_OK(ctx, KivSdMemUnlock(ctx, count, &pages));
    for (const ScriptedImport* each : {&lock, &unlock}) {
      ASSERT_EQ(each->calls().size(), 1u);
      EXPECT_EQ(each->calls()[0][0], Number(&pages));
      EXPECT_EQ(each->calls()[0][1], sizeBytes);
    }
  }
}

TEST(PageLockFailure, ReleasesThePagesAndReturnsTheirAddress) {
  const struct {
    uint32_t osError;
    uint32_t status;
  } cases[] = {{kOsLockQuota, KIV_ST_WORKING_SET_QUOTA},
               {1452, KIV_ST_PAGE_LOCK},
               {998, KIV_ST_PAGE_LOCK},
               {1454, KIV_ST_PAGE_LOCK}};
  for (const auto& [osError, status] : cases) {
    Context ctx;
    void* pages = nullptr;
    const ScriptedImport lock("VirtualLock", {.result = 0, .error = osError});
    // The release fails, too, and changes the last error. The record keeps the lock's error.
    const ScriptedImport release("VirtualFree", {.result = 0, .error = 5});
    CHECK_OUTCOME(ctx, KivSdPhysMemAlloc(ctx, 3, &pages), status, osError);
    ASSERT_NE(pages, nullptr);
    ASSERT_EQ(lock.calls().size(), 1u);
    EXPECT_EQ(lock.calls()[0][0], Number(pages));
    EXPECT_EQ(lock.calls()[0][1], 3u * KIV_PAGE_UNIT);
    ASSERT_EQ(release.calls().size(), 1u);
    ExpectRelease(release.calls()[0], pages);

    CHECK_OUTCOME(ctx, KivSdMemLock(ctx, 3, pages), status, osError);
    EXPECT_EQ(release.calls().size(), 1u);
  }
}

TEST(PageLockFailure, UnlockReportsTheSystemsError) {
  Context ctx;
  char page = 0;
  const ScriptedImport unlock("VirtualUnlock", {.result = 0, .error = 158});
  CHECK_OUTCOME(ctx, KivSdMemUnlock(ctx, 1, &page), KIV_ST_PAGE_UNLOCK, 158u);
  // Only a lock maps the quota error to a status of its own.
  const ScriptedImport quota("VirtualUnlock", {.result = 0, .error = kOsLockQuota});
  CHECK_OUTCOME(ctx, KivSdMemUnlock(ctx, 1, &page), KIV_ST_PAGE_UNLOCK, kOsLockQuota);
}

TEST(PageReleaseFailure, ReportsTheSystemsError) {
  Context ctx;
  char page = 0;
  const ScriptedImport release("VirtualFree", {.result = 0, .error = 487});
  CHECK_OUTCOME(ctx, KivSdPhysMemFree(ctx, &page), KIV_ST_PAGE_RELEASE, 487u);
  CHECK_OUTCOME(ctx, KivSdAlignedMemFree(ctx, &page), KIV_ST_ALIGNED_RELEASE, 487u);
  ASSERT_EQ(release.calls().size(), 2u);
  for (const ScriptedImport::Arguments& call : release.calls()) ExpectRelease(call, &page);
}

TEST(PageReleaseFailure, IsNotTriedForNull) {
  const ScriptedImport release("VirtualFree", kPassThrough);
  EXPECT_EQ(KivSdPhysMemFree(nullptr, nullptr), KIV_ST_ARGUMENT);
  EXPECT_EQ(KivSdAlignedMemFree(nullptr, nullptr), KIV_ST_ARGUMENT);
  EXPECT_TRUE(release.calls().empty());
}

// ---- Reallocated pages ----

TEST(PageReallocFailure, KeepsTheNewLockedPagesIfTheOldOnesCannotBeReleased) {
  Context ctx;
  void* pages = nullptr;
  ASSERT_EQ(KivSdPhysMemAlloc(nullptr, 1, &pages), KIV_ST_OK);
  void* const old = pages;
  {
    const ScriptedImport lock("VirtualLock", kPassThrough);
    const ScriptedImport release("VirtualFree", {.result = 0, .error = 487});
    CHECK_OUTCOME(ctx, KivSdPhysMemRealloc(ctx, 1, 2, &pages), KIV_ST_PAGE_RELEASE, 487u);
    EXPECT_EQ(pages, old);
    ASSERT_EQ(release.calls().size(), 1u);
    ExpectRelease(release.calls()[0], old);
    ASSERT_EQ(lock.calls().size(), 1u);
    pages = reinterpret_cast<void*>(lock.calls()[0][0]);
    EXPECT_NE(pages, old);
  }
  EXPECT_EQ(KivSdPhysMemFree(nullptr, pages), KIV_ST_OK);  // the new pages are still committed
  EXPECT_EQ(KivSdPhysMemFree(nullptr, old), KIV_ST_OK);
}

TEST(PageReallocFailure, ReleasesTheNewAlignedPagesIfTheOldOnesCannotBeReleased) {
  Context ctx;
  void* pages = nullptr;
  ASSERT_EQ(KivSdAlignedMemAlloc(nullptr, 1, &pages), KIV_ST_OK);
  void* const old = pages;
  {
    const ScriptedImport release("VirtualFree", {.result = 0, .error = 487, .failCount = 1});
    CHECK_OUTCOME(ctx, KivSdAlignedMemRealloc(ctx, 1, 2, &pages), KIV_ST_ALIGNED_RELEASE, 487u);
    EXPECT_EQ(pages, old);
    ASSERT_EQ(release.calls().size(), 2u);
    ExpectRelease(release.calls()[0], old);
    void* const fresh = reinterpret_cast<void*>(release.calls()[1][0]);
    EXPECT_NE(fresh, old);
    ExpectRelease(release.calls()[1], fresh);
    EXPECT_NE(KivSdAlignedMemFree(nullptr, fresh), KIV_ST_OK);  // already released
  }
  EXPECT_EQ(KivSdAlignedMemFree(nullptr, old), KIV_ST_OK);
}

TEST(PageReallocFailure, OfANullBlockReleasesTheNewAlignedPages) {
  Context ctx;
  void* pages = nullptr;
  const ScriptedImport release("VirtualFree", kPassThrough);
  CHECK_ARGUMENT(ctx, KivSdPhysMemRealloc(ctx, 1, 1, &pages));
  EXPECT_TRUE(release.calls().empty());
  CHECK_ARGUMENT(ctx, KivSdAlignedMemRealloc(ctx, 1, 1, &pages));
  EXPECT_EQ(release.calls().size(), 1u);
  EXPECT_EQ(pages, nullptr);
}

TEST(PageReallocFailure, LeavesTheOldPagesIfTheNewOnesCannotBeLocked) {
  Context ctx;
  void* pages = nullptr;
  ASSERT_EQ(KivSdPhysMemAlloc(nullptr, 1, &pages), KIV_ST_OK);
  void* const old = pages;
  std::strcpy(static_cast<char*>(pages), "still here");
  {
    const ScriptedImport lock("VirtualLock", {.result = 0, .error = kOsLockQuota});
    CHECK_OUTCOME(ctx, KivSdPhysMemRealloc(ctx, 1, 2, &pages), KIV_ST_WORKING_SET_QUOTA,
                  kOsLockQuota);
  }
  EXPECT_EQ(pages, old);
  EXPECT_STREQ(static_cast<char*>(pages), "still here");
  EXPECT_EQ(KivSdPhysMemFree(nullptr, pages), KIV_ST_OK);
}

}  // namespace
