// The messages about shortage: which are sent and which are suppressed.
//
// The manager's clock counts allocations from heaps. A sent message suppresses others of its kind
// for 1000 allocations.
#include <gtest/gtest.h>

#include <array>
#include <string>

#include "support/manager.h"
#include "support/process.h"

namespace {

using namespace kiv::test;

constexpr uint64_t kHeaps = kFirstHeaps * kHeapBytes;
constexpr uint64_t kLimit = 10 * 1024 * 1024;
constexpr uint64_t kWarningMark = kLimit / 100 * 90;
constexpr uint64_t kQuiet = 1000;
const std::string kLimited = std::string(kSmall) + "memorylimit 10M";

using Messages = std::vector<Message>;
const Messages kNone;

const uint64_t kTooMuch = kLimit;

// Makes a request that fails, and returns the messages that it sent.
Messages Fail() {
  void* block = nullptr;
  EXPECT_EQ(adMalloc(nullptr, kTooMuch, &block, "tests", 1), KIV_ST_OUT_OF_MEMORY);
  return TakeMessages();
}

const Messages kFailure = {Refused(kHeaps + kTooMuch, kTooMuch)};

// Makes a request that exceeds 90% of the limit, frees the block, and returns the messages.
Messages Cross() {
  Free(Allocate(kWarningMark - kHeaps - kLargeHeaderBytes + 1));
  return TakeMessages();
}

const Messages kWarning = {Near(kWarningMark + 1)};

void Pass(uint64_t ticks) {
  for (uint64_t i = 0; i < ticks; ++i) Free(Allocate(8));
}

void Begin(const std::string& text = kLimited) {
  ASSERT_EQ(Restart(text), KIV_ST_OK);
  Listen();
}

TEST(Messages, TwoFailuresWithin1000AllocationsSendOne) {
  Begin();
  EXPECT_EQ(Fail(), kFailure);
  EXPECT_EQ(Fail(), kNone);
  Pass(kQuiet - 1);
  EXPECT_EQ(Fail(), kNone);
  Pass(1);
  EXPECT_EQ(Fail(), kFailure);
  // The second message starts the 1000 allocations again.
  Pass(kQuiet - 1);
  EXPECT_EQ(Fail(), kNone);
}

// Neither failed nor successful requests for large blocks advance the clock.
TEST(Messages, LargeRequestsDoNotAdvanceTheClock) {
  Begin();
  void* most = Allocate(kLimit - kHeaps - 32 - kLargestInHeap);
  Pass(kQuiet);
  TakeMessages();
  void* block = nullptr;
  EXPECT_EQ(adMalloc(nullptr, kLargestInHeap + 1, &block, "tests", 1), KIV_ST_OUT_OF_MEMORY);
  EXPECT_EQ(TakeMessages().size(), 1u);
  for (uint64_t i = 0; i <= kQuiet; ++i) {
    EXPECT_EQ(adMalloc(nullptr, kLargestInHeap + 1, &block, "tests", 1), KIV_ST_OUT_OF_MEMORY);
  }
  EXPECT_EQ(TakeMessages(), kNone);
  Free(most);
  for (uint64_t i = 0; i <= kQuiet; ++i) Free(Allocate(kLargestInHeap + 1));
  EXPECT_EQ(Fail(), kNone);
}

TEST(Messages, TwoWarningsWithin1000AllocationsSendOne) {
  Begin();
  EXPECT_EQ(Cross(), kWarning);
  EXPECT_EQ(Cross(), kNone);
  Pass(kQuiet - 1);
  EXPECT_EQ(Cross(), kNone);
  Pass(1);
  EXPECT_EQ(Cross(), kWarning);
}

TEST(Messages, AFailureIsSentDirectlyAfterAWarning) {
  Begin();
  EXPECT_EQ(Cross(), kWarning);
  EXPECT_EQ(Fail(), kFailure);
  EXPECT_EQ(Fail(), kNone);
}

// A sent warning is not recorded as the last kind of message.
TEST(Messages, ASentWarningDoesNotLetTheNextFailureThrough) {
  Begin();
  EXPECT_EQ(Fail(), kFailure);
  Pass(kQuiet);
  EXPECT_EQ(Cross(), kWarning);
  EXPECT_EQ(Fail(), kNone);
  Pass(kQuiet - 1);
  EXPECT_EQ(Fail(), kNone);
  Pass(1);
  EXPECT_EQ(Fail(), kFailure);
}

// A suppressed warning is recorded as the last kind of message.
TEST(Messages, ASuppressedWarningLetsTheNextFailureThrough) {
  Begin();
  EXPECT_EQ(Fail(), kFailure);
  EXPECT_EQ(Cross(), kNone);
  EXPECT_EQ(Fail(), kFailure);
  EXPECT_EQ(Fail(), kNone);
}

TEST(Messages, AFailureClearsAPendingWarning) {
  Begin();
  adMemResetThreadContext();
  // The region sends its warning at once; no warning is pending afterwards.
  int region = 0;
  EXPECT_EQ(adMemAlignedIncCounter(&region, (kWarningMark - kHeaps) / AD_MEMORY_UNIT + 1),
            KIV_ST_OK);
  Listen();
  Pass(1);
  EXPECT_EQ(TakeMessages(), kNone);
  adMemAlignedDecCounter(&region);

  // A warning of the initialisation is pending until the first request, which fails here.
  ASSERT_EQ(Restart("numthreadheaps 4 heapsize 800K memorylimit 10M"), KIV_ST_OK);
  Listen();
  const uint64_t heaps = kFirstHeaps * 800 * 1024;
  EXPECT_EQ(Fail(), Messages{Refused(heaps + kTooMuch, kTooMuch)});
  // If a warning were still pending, it would be suppressed here and let the next failure through.
  Pass(1);
  EXPECT_EQ(Fail(), kNone);
  Pass(kQuiet);
  EXPECT_EQ(TakeMessages(), kNone);
}

TEST(Messages, WithoutAContextNothingIsSentAndNothingStaysPending) {
  Begin();
  adMemResetThreadContext();
  EXPECT_EQ(Fail(), kNone);
  EXPECT_EQ(Cross(), kNone);
  Listen();
  Pass(1);
  EXPECT_EQ(TakeMessages(), kNone);
  // Nothing was sent: nothing suppresses the first failure.
  EXPECT_EQ(Fail(), kFailure);

  Begin();
  adMemResetThreadContext();
  EXPECT_EQ(Fail(), kNone);
  Listen();
  EXPECT_EQ(Fail(), kFailure);
}

// The kind is recorded, although no message was sent.
TEST(Messages, AFailureWithoutAContextIsRecordedAsTheLastMessage) {
  Begin();
  EXPECT_EQ(Cross(), kWarning);
  adMemResetThreadContext();
  EXPECT_EQ(Fail(), kNone);
  Listen();
  EXPECT_EQ(Fail(), kNone) << "the warning's quiet holds for a failure after a failure";
  Pass(kQuiet);
  EXPECT_EQ(Fail(), kFailure);
}

TEST(Messages, WithoutALimitHaveTheStatusNoMemory) {
  Begin(kSmall);
  constexpr uint64_t kMore = (uint64_t{1} << 60) + 123;
  void* block = nullptr;
  EXPECT_EQ(adMalloc(nullptr, kMore, &block, "tests", 1), KIV_ST_OUT_OF_MEMORY);
  EXPECT_EQ(TakeMessages(), Messages{NoMemory(kHeaps + 123, 123)});
  EXPECT_EQ(adRealloc(nullptr, kMore, Allocate(100), &block, "tests", 1), KIV_ST_OUT_OF_MEMORY);
  EXPECT_EQ(TakeMessages(), kNone);
  Pass(kQuiet);
  EXPECT_EQ(adRealloc(nullptr, kMore, Allocate(100), &block, "tests", 1), KIV_ST_OUT_OF_MEMORY);
  EXPECT_EQ(TakeMessages(), Messages{NoMemory(kHeaps + 123, 123)});
}

// The host may store the handle after it has registered its context.
TEST(Messages, ReadTheHandleWhenTheyAreSent) {
  Begin();
  std::array<uint64_t, 27> context = {};
  adMemSetThreadContext(context.data());
  context[26] = 0xFEDCBA9876543210;
  Message expected = Refused(kHeaps + kTooMuch, kTooMuch);
  expected.handle = 0xFEDCBA9876543210;
  EXPECT_EQ(Fail(), Messages{expected});
  Pass(kQuiet);
  context[26] = 1;
  expected.handle = 1;
  EXPECT_EQ(Fail(), Messages{expected});
  adMemResetThreadContext();
}

TEST(Messages, IncludeRegionsInTheTotal) {
  Begin();
  int region = 0;
  EXPECT_EQ(adMemAlignedIncCounter(&region, 10), KIV_ST_OK);
  EXPECT_EQ(Fail(), Messages{Refused(kHeaps + 10 * AD_MEMORY_UNIT + kTooMuch, kTooMuch)});
  adMemAlignedDecCounter(&region);
}

// The host may allocate in its message function: no lock is held.
TEST(Messages, AreSentWithNoLockHeld) {
  Begin(kLimited + " limitshortheapsforremove 0");
  OnMessage([] {
    int region = 0;
    Free(Allocate(100));
    Free(Allocate(100'000));
    EXPECT_EQ(adMemAlignedIncCounter(&region, 1), KIV_ST_OK);
    adMemAlignedDecCounter(&region);
    EXPECT_EQ(TotalsNow().inHeaps, kHeaps);
    AdShortHeapOwner owner = {};
    adMemShortHeapInit(&owner);
    adMemShortHeapTerm(&owner);
  });
  EXPECT_EQ(Fail(), kFailure);
  Pass(kQuiet);
  EXPECT_EQ(Cross(), kWarning);
  int region = 0;
  Pass(kQuiet);
  EXPECT_EQ(adMemAlignedIncCounter(&region, kLimit / AD_MEMORY_UNIT), KIV_ST_ALIGNED_COMMIT);
  EXPECT_EQ(TakeMessages().size(), 1u);
  OnMessage(nullptr);
}

TEST(Messages, AreSentForTheHostsOwnAllocations) {
  Begin();
  adMemSendErrorMessage(7);
  EXPECT_EQ(TakeMessages(), Messages{Refused(kHeaps, 7 * AD_MEMORY_UNIT)});
  adMemSendErrorMessage(7);
  EXPECT_EQ(TakeMessages(), kNone) << "throttled like any failure";
  Pass(kQuiet);
  adMemSendErrorMessage(0xFFFFFFFF);
  EXPECT_EQ(TakeMessages(), Messages{Refused(kHeaps, 0xFFFFE000)});
  Begin(kSmall);
  int region = 0;
  EXPECT_EQ(adMemAlignedIncCounter(&region, 2), KIV_ST_OK);
  adMemSendErrorMessage(0);
  EXPECT_EQ(TakeMessages(), Messages{NoMemory(kHeaps + 2 * AD_MEMORY_UNIT, 0)});
  adMemAlignedDecCounter(&region);
}

TEST(Messages, ARefusedRegionIsThrottledWithTheFailures) {
  Begin();
  int region = 0;
  EXPECT_EQ(Fail(), kFailure);
  EXPECT_EQ(adMemAlignedIncCounter(&region, kLimit / AD_MEMORY_UNIT), KIV_ST_ALIGNED_COMMIT);
  EXPECT_EQ(TakeMessages(), kNone);
  Pass(kQuiet);
  EXPECT_EQ(adMemAlignedIncCounter(&region, kLimit / AD_MEMORY_UNIT), KIV_ST_ALIGNED_COMMIT);
  EXPECT_EQ(TakeMessages(), Messages{Refused(kHeaps, kLimit)});
  EXPECT_EQ(Fail(), kNone);
}

// The clock does not advance in plain mode.
TEST(Messages, InPlainModeAreSentOnce) {
  IN_FRESH_PROCESS([] {
    ASSERT_EQ(Initialize(kNoFile), KIV_ST_OK);
    Listen();
    constexpr uint64_t kMore = (uint64_t{1} << 60) + 123;
    void* block = nullptr;
    EXPECT_EQ(adMalloc(nullptr, kMore, &block, "tests", 1), KIV_ST_OUT_OF_MEMORY);
    EXPECT_EQ(block, nullptr);
    EXPECT_EQ(TakeMessages(), Messages{NoMemory(123, 123)});
    for (int i = 0; i < 3000; ++i) {
      ASSERT_EQ(adMalloc(nullptr, 8, &block, "tests", 1), KIV_ST_OK);
      ASSERT_EQ(adFree(block, "tests", 1), KIV_ST_OK);
    }
    EXPECT_EQ(adMalloc(nullptr, kMore, &block, "tests", 1), KIV_ST_OUT_OF_MEMORY);
    EXPECT_EQ(TakeMessages(), kNone);
  });
}

}  // namespace
