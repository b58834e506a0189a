// Shared semaphore sets when the system or the allocator fails: the handles closed, the blocks
// freed and the value left in the caller's variable. Also the largest set.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "kivsdu/kivsdu.h"
#include "support/context.h"
#include "support/import_patch.h"
#include "support/last_error.h"

namespace {

using kiv::test::Context;
using kiv::test::ImportPatch;
using kiv::test::ScriptedImport;

constexpr uint32_t kError = 1234;
constexpr uint32_t kForEver = 0xFFFFFFFF;
constexpr int32_t kInitial[] = {1, 2, 3};
constexpr int32_t kMaximum[] = {4, 5, 6};

KivSdShSemSet* Unwritten() { return reinterpret_cast<KivSdShSemSet*>(uintptr_t{0x5A5A5A50}); }

uint32_t CreateThree(KivSdContext* ctx, KivSdShSemSet** set) {
  return KivSdShSemSetCreate(ctx, "failing", 3, 0, kInitial, kMaximum, set);
}

uint32_t Low(uintptr_t word) { return static_cast<uint32_t>(word); }

std::vector<uintptr_t> FirstArguments(const ScriptedImport& import) {
  std::vector<uintptr_t> first;
  for (const ScriptedImport::Arguments& call : import.calls()) first.push_back(call[0]);
  return first;
}

// Fake semaphores: handles count up from 1000, and the arguments of each creation are recorded.
struct Asked {
  const void* security;
  int32_t initialCount;
  int32_t maximumCount;
  std::string name;
};
std::vector<Asked> asked;
size_t failsAt = SIZE_MAX;

constexpr uintptr_t kFirstSemaphore = 1000;

KivHandle MakeNumber(const void* security, int32_t initialCount, int32_t maximumCount,
                     const char* name) {
  const size_t number = asked.size();
  asked.push_back({security, initialCount, maximumCount, name});
  if (number == failsAt) {
    kiv::test::SetErrors(0, kError);
    return nullptr;
  }
  return reinterpret_cast<KivHandle>(kFirstSemaphore + number);
}

class SemaphoreSetFailure : public testing::Test {
 protected:
  void SetUp() override {
    asked.clear();
    failsAt = SIZE_MAX;
  }

  Context ctx_;
  KivSdShSemSet* set_ = Unwritten();
  const ImportPatch semaphores_{"CreateSemaphoreA", reinterpret_cast<void*>(&MakeNumber)};
  const ScriptedImport closed_{"CloseHandle", {.result = 1}};
};

TEST_F(SemaphoreSetFailure, CreatesEachMemberWithItsNumberAndCounts) {
  ASSERT_EQ(CreateThree(ctx_, &set_), KIV_ST_OK);
  ASSERT_EQ(asked.size(), 3u);
  for (size_t i = 0; i < 3; ++i) {
    EXPECT_EQ(asked[i].security, nullptr);
    EXPECT_EQ(asked[i].initialCount, kInitial[i]);
    EXPECT_EQ(asked[i].maximumCount, kMaximum[i]);
    EXPECT_EQ(asked[i].name, "failing_" + std::to_string(i));
    EXPECT_EQ(reinterpret_cast<uintptr_t>(set_->members[i]), kFirstSemaphore + i);
  }
  EXPECT_EQ(set_->count, 3u);
  EXPECT_EQ(KivSdShSemSetClose(ctx_, set_), KIV_ST_OK);
  EXPECT_EQ(FirstArguments(closed_), (std::vector<uintptr_t>{1000, 1001, 1002}));
}

// 1036 bytes: the longest name, 259 characters, if each takes four bytes in UTF-8.
TEST_F(SemaphoreSetFailure, CreatesAMemberUnderItsFullName) {
  for (const size_t bytes : {400u, 401u, 777u, 1036u}) {
    asked.clear();
    const std::string base(bytes, 'x');
    ASSERT_EQ(KivSdShSemSetCreate(ctx_, base.c_str(), 1, 0, kInitial, kMaximum, &set_), KIV_ST_OK);
    EXPECT_EQ(asked[0].name, base + "_0") << bytes;
    EXPECT_EQ(KivSdShSemSetClose(ctx_, set_), KIV_ST_OK);
  }
}

TEST_F(SemaphoreSetFailure, ClosesAndFreesEverythingMadeBeforeTheFailingMember) {
  for (size_t failing = 0; failing < 3; ++failing) {
    SCOPED_TRACE(failing);
    asked.clear();
    failsAt = failing;
    set_ = Unwritten();
    const size_t closedBefore = closed_.calls().size();
    const ScriptedImport made("malloc", {.failCount = 0});
    const ScriptedImport freed("free", {.failCount = 0});
    ctx_.Spoil();
    EXPECT_EQ(CreateThree(ctx_, &set_), KIV_ST_SEM_CREATE);
    EXPECT_TRUE(ctx_.IsUntouched());
    EXPECT_EQ(set_, nullptr);
    EXPECT_EQ(asked.size(), failing + 1) << "nothing is made after a failure";
    ASSERT_EQ(closed_.calls().size(), closedBefore + failing);
    for (size_t i = 0; i < failing; ++i) {
      EXPECT_EQ(closed_.calls()[closedBefore + i][0], kFirstSemaphore + i);
    }
    EXPECT_EQ(made.calls().size(), 2u);
    EXPECT_EQ(freed.calls().size(), 2u);
  }
}

TEST_F(SemaphoreSetFailure, CreatesNothingWithoutMemoryForTheRecord) {
  const ScriptedImport malloc("malloc", {.result = 0, .error = 8});
  ctx_.Spoil();
  EXPECT_EQ(CreateThree(ctx_, &set_), KIV_ST_OUT_OF_MEMORY);
  EXPECT_TRUE(ctx_.IsUntouched());
  EXPECT_EQ(set_, nullptr);
  EXPECT_EQ(malloc.calls().size(), 1u);
  EXPECT_TRUE(asked.empty());
}

TEST_F(SemaphoreSetFailure, FreesTheRecordButLeavesItsAddressWithoutMemoryForTheMembers) {
  const ScriptedImport malloc("malloc", {.result = 0, .error = 8, .passFirst = 1});
  const ScriptedImport freed("free", {.failCount = 0});
  ctx_.Spoil();
  EXPECT_EQ(CreateThree(ctx_, &set_), KIV_ST_OUT_OF_MEMORY);
  EXPECT_TRUE(ctx_.IsUntouched());
  EXPECT_EQ(malloc.calls().size(), 2u);
  ASSERT_EQ(freed.calls().size(), 1u);
  EXPECT_EQ(freed.calls()[0][0], reinterpret_cast<uintptr_t>(set_));
  EXPECT_NE(set_, nullptr);
  EXPECT_NE(set_, Unwritten());
  EXPECT_TRUE(asked.empty());
}

TEST_F(SemaphoreSetFailure, CloseFreesEverythingAndIgnoresFailingMembers) {
  ASSERT_EQ(CreateThree(ctx_, &set_), KIV_ST_OK);
  const ScriptedImport failingClose("CloseHandle", {.result = 0, .error = kError});
  const ScriptedImport freed("free", {.failCount = 0});
  const std::vector<uintptr_t> blocks = {reinterpret_cast<uintptr_t>(set_->members),
                                         reinterpret_cast<uintptr_t>(set_)};
  ctx_.Spoil();
  EXPECT_EQ(KivSdShSemSetClose(ctx_, set_), KIV_ST_OK);
  EXPECT_TRUE(ctx_.IsUntouched());
  EXPECT_EQ(failingClose.calls().size(), 3u);
  EXPECT_EQ(FirstArguments(freed), blocks);
}

TEST_F(SemaphoreSetFailure, AnEmptySetAllocatesAndFreesOnlyItsRecord) {
  const ScriptedImport made("malloc", {.failCount = 0});
  const ScriptedImport freed("free", {.failCount = 0});
  ASSERT_EQ(KivSdShSemSetCreate(ctx_, "empty", 0, 0, kInitial, kMaximum, &set_), KIV_ST_OK);
  EXPECT_TRUE(asked.empty());
  EXPECT_EQ(KivSdShSemSetClose(ctx_, set_), KIV_ST_OK);
  EXPECT_EQ(freed.calls().size(), made.calls().size());
  EXPECT_TRUE(closed_.calls().empty());
}

TEST_F(SemaphoreSetFailure, TheLargestSetHasEveryMember) {
  constexpr uint16_t kCount = 0xFFFF;
  const std::vector<int32_t> initial(kCount, 0);
  std::vector<int32_t> maximum(kCount);
  for (size_t i = 0; i < kCount; ++i) maximum[i] = static_cast<int32_t>(i + 1);
  ASSERT_EQ(KivSdShSemSetCreate(ctx_, "large", kCount, 0, initial.data(), maximum.data(), &set_),
            KIV_ST_OK);
  ASSERT_EQ(asked.size(), kCount);
  EXPECT_EQ(asked.back().name, "large_65534");
  EXPECT_EQ(asked.back().maximumCount, kCount);
  EXPECT_EQ(set_->count, kCount);
  for (size_t i = 0; i < kCount; ++i) {
    ASSERT_EQ(reinterpret_cast<uintptr_t>(set_->members[i]), kFirstSemaphore + i);
  }
  CHECK_ARGUMENT(ctx_, KivSdShSemSetRequest(ctx_, kCount, set_, 0));
  EXPECT_EQ(KivSdShSemSetClose(ctx_, set_), KIV_ST_OK);
  ASSERT_EQ(closed_.calls().size(), kCount);
  EXPECT_EQ(closed_.calls().back()[0], kFirstSemaphore + kCount - 1);
}

TEST_F(SemaphoreSetFailure, AnArgumentErrorCreatesNothing) {
  const ScriptedImport malloc("malloc", {.failCount = 0});
  CHECK_ARGUMENT(ctx_, KivSdShSemSetCreate(ctx_, "", 3, 0, kInitial, kMaximum, &set_));
  EXPECT_EQ(set_, Unwritten());
  EXPECT_TRUE(malloc.calls().empty());
  EXPECT_TRUE(asked.empty());
}

// ---- Requests and clears ----

TEST_F(SemaphoreSetFailure, RequestsPassOnTheMemberAndTheTimeOut) {
  ASSERT_EQ(CreateThree(ctx_, &set_), KIV_ST_OK);
  for (const uint32_t timeoutMs : {0u, 30u, 0x7FFFFFFFu, 0x80000000u, 0xFFFFFFFEu, kForEver}) {
    const ScriptedImport wait("WaitForSingleObject", {.result = 0});
    EXPECT_EQ(KivSdShSemSetRequest(ctx_, 1, set_, timeoutMs), KIV_ST_OK);
    ASSERT_EQ(wait.calls().size(), 1u);
    EXPECT_EQ(wait.calls()[0][0], kFirstSemaphore + 1);
    EXPECT_EQ(Low(wait.calls()[0][1]), timeoutMs);
  }
  KivSdShSemSetClose(nullptr, set_);
}

TEST_F(SemaphoreSetFailure, RequestsDoNotRecordAFailedWait) {
  ASSERT_EQ(CreateThree(ctx_, &set_), KIV_ST_OK);
  const struct {
    uint32_t result, status;
  } waits[] = {{258, KIV_ST_SEM_TIMEOUT},
               {128, KIV_ST_SEM_REQUEST},
               {0xFFFFFFFF, KIV_ST_SEM_REQUEST},
               {1, KIV_ST_SEM_REQUEST},
               {0, KIV_ST_OK}};
  for (const auto& [result, status] : waits) {
    const ScriptedImport wait("WaitForSingleObject", {.result = result, .error = kError});
    ctx_.Spoil();
    EXPECT_EQ(KivSdShSemSetRequest(ctx_, 0, set_, 0), status) << result;
    EXPECT_TRUE(ctx_.IsUntouched()) << result;
  }
  KivSdShSemSetClose(nullptr, set_);
}

TEST_F(SemaphoreSetFailure, ClearsReleaseOneAndDoNotRecordAFailure) {
  ASSERT_EQ(CreateThree(ctx_, &set_), KIV_ST_OK);
  for (const uint32_t error : {298u, kError}) {
    const ScriptedImport release("ReleaseSemaphore", {.result = 0, .error = error});
    ctx_.Spoil();
    EXPECT_EQ(KivSdShSemSetClear(ctx_, 2, set_), KIV_ST_SEM_CLEAR);
    EXPECT_TRUE(ctx_.IsUntouched());
    ASSERT_EQ(release.calls().size(), 1u);
    EXPECT_EQ(release.calls()[0][0], kFirstSemaphore + 2);
    EXPECT_EQ(Low(release.calls()[0][1]), 1u);
  }
  KivSdShSemSetClose(nullptr, set_);
}

}  // namespace
