// Gate events, standard events and counting events. kernel_objects_failure_test checks the
// arguments of the system calls and their failures.
#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

#include "kivsdu/kivsdu.h"
#include "support/context.h"
#include "support/os_errors.h"
#include "support/waiting.h"

namespace {

using kiv::test::Context;
using kiv::test::kLimitMs;
using kiv::test::kOsBadArgument;
using kiv::test::kOsBadHandle;
using kiv::test::kOsTooManyPosts;
using kiv::test::kShortAtLeastMs;
using kiv::test::kShortMs;
using kiv::test::Later;
using kiv::test::Stopwatch;

constexpr uint32_t kForEverMs = 0xFFFFFFFF;

KivHandle BadHandle() { return reinterpret_cast<KivHandle>(uintptr_t{0x7FFFFFF0}); }

// A closed handle is as bad as one that was never made.
bool IsOpenHandle(KivHandle handle) {
  return KivSdStdEventTimedWait(nullptr, &handle, 0) != KIV_ST_EVENT_WAIT;
}

// ---- Gates ----

class GateEvent : public testing::Test {
 protected:
  void SetUp() override {
    CHECK_OK(ctx_, KivSdEventCreate(ctx_, &gate_));
    ASSERT_NE(gate_, nullptr);
  }

  void TearDown() override { CHECK_OK(ctx_, KivSdEventClose(ctx_, &gate_)); }

  void ExpectOpen() { CHECK_OK(ctx_, KivSdEventWait(ctx_, &gate_, 0)); }
  void ExpectClosed() {
    CHECK_OUTCOME(ctx_, KivSdEventWait(ctx_, &gate_, 0), KIV_ST_EVENT_TIMEOUT, 258u);
  }

  Context ctx_;
  KivHandle gate_ = nullptr;
};

TEST_F(GateEvent, IsOpenWhenCreatedAndClosesBehindTheFirstToPass) {
  ExpectOpen();
  ExpectClosed();
}

TEST_F(GateEvent, SetClosesIt) {
  CHECK_OK(ctx_, KivSdEventSet(ctx_, &gate_));
  ExpectClosed();
  CHECK_OK(ctx_, KivSdEventSet(ctx_, &gate_));
  ExpectClosed();
}

TEST_F(GateEvent, ClearOpensItForOneThread) {
  CHECK_OK(ctx_, KivSdEventSet(ctx_, &gate_));
  CHECK_OK(ctx_, KivSdEventClear(ctx_, &gate_));
  CHECK_OK(ctx_, KivSdEventClear(ctx_, &gate_));
  ExpectOpen();
  ExpectClosed();
}

TEST_F(GateEvent, WaitsAtAClosedGateUntilTheTimeOut) {
  CHECK_OK(ctx_, KivSdEventSet(ctx_, &gate_));
  const Stopwatch watch;
  CHECK_OUTCOME(ctx_, KivSdEventWait(ctx_, &gate_, kShortMs), KIV_ST_EVENT_TIMEOUT, 258u);
  EXPECT_GE(watch.ElapsedMs(), kShortAtLeastMs);
  EXPECT_LT(watch.ElapsedMs(), kLimitMs);
}

TEST_F(GateEvent, WaitsUntilAnotherThreadOpensTheGate) {
  CHECK_OK(ctx_, KivSdEventSet(ctx_, &gate_));
  for (const uint32_t timeoutMs : {kForEverMs, kForEverMs - 1, kLimitMs}) {
    const Later open([&] { KivSdEventClear(nullptr, &gate_); });
    CHECK_OK(ctx_, KivSdEventWait(ctx_, &gate_, timeoutMs));
  }
  ExpectClosed();
}

TEST_F(GateEvent, LetsOneThreadThroughAtATime) {
  constexpr int kThreads = 4;
  constexpr int kRounds = 250;
  int inside = 0;  // guarded by the gate
  int passed = 0;
  std::atomic<int> wrong{0};
  std::vector<std::thread> threads;
  for (int i = 0; i < kThreads; ++i) {
    threads.emplace_back([&] {
      for (int round = 0; round < kRounds; ++round) {
        if (KivSdEventWait(nullptr, &gate_, kLimitMs) != KIV_ST_OK) ++wrong;
        if (++inside != 1) ++wrong;
        ++passed;
        --inside;
        if (KivSdEventClear(nullptr, &gate_) != KIV_ST_OK) ++wrong;
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(wrong, 0);
  EXPECT_EQ(passed, kThreads * kRounds);
}

TEST_F(GateEvent, CloseLeavesTheVariableUnchanged) {
  KivHandle gate = nullptr;
  CHECK_OK(ctx_, KivSdEventCreate(ctx_, &gate));
  const KivHandle before = gate;
  CHECK_OK(ctx_, KivSdEventClose(ctx_, &gate));
  EXPECT_EQ(gate, before);
  EXPECT_FALSE(IsOpenHandle(before));
}

TEST_F(GateEvent, RefusesNullPointers) {
  CHECK_ARGUMENT(ctx_, KivSdEventCreate(ctx_, nullptr));
  CHECK_ARGUMENT(ctx_, KivSdEventClose(ctx_, nullptr));
  CHECK_ARGUMENT(ctx_, KivSdEventSet(ctx_, nullptr));
  CHECK_ARGUMENT(ctx_, KivSdEventClear(ctx_, nullptr));
  CHECK_ARGUMENT(ctx_, KivSdEventWait(ctx_, nullptr, 0));
}

TEST_F(GateEvent, BadHandlesFailWithTheSystemsError) {
  KivHandle bad = BadHandle();
  CHECK_OUTCOME(ctx_, KivSdEventSet(ctx_, &bad), KIV_ST_EVENT_SET, kOsBadHandle);
  CHECK_OUTCOME(ctx_, KivSdEventClear(ctx_, &bad), KIV_ST_EVENT_CLEAR, kOsBadHandle);
  CHECK_OUTCOME(ctx_, KivSdEventWait(ctx_, &bad, 0), KIV_ST_EVENT_WAIT, kOsBadHandle);
  CHECK_OUTCOME(ctx_, KivSdEventClose(ctx_, &bad), KIV_ST_EVENT_CLOSE, kOsBadHandle);
  EXPECT_EQ(bad, BadHandle());
}

TEST_F(GateEvent, WorksWithoutAContext) {
  KivHandle gate = nullptr;
  EXPECT_EQ(KivSdEventCreate(nullptr, &gate), KIV_ST_OK);
  EXPECT_EQ(KivSdEventSet(nullptr, &gate), KIV_ST_OK);
  EXPECT_EQ(KivSdEventWait(nullptr, &gate, 0), KIV_ST_EVENT_TIMEOUT);
  EXPECT_EQ(KivSdEventClear(nullptr, &gate), KIV_ST_OK);
  EXPECT_EQ(KivSdEventWait(nullptr, &gate, 0), KIV_ST_OK);
  EXPECT_EQ(KivSdEventClose(nullptr, &gate), KIV_ST_OK);
  EXPECT_EQ(KivSdEventCreate(nullptr, nullptr), KIV_ST_ARGUMENT);
}

// ---- Standard events ----

class StandardEvent : public testing::Test {
 protected:
  void SetUp() override {
    CHECK_OK(ctx_, KivSdStdEventCreate(ctx_, &event_));
    ASSERT_NE(event_, nullptr);
  }

  void TearDown() override { CHECK_OK(ctx_, KivSdStdEventClose(ctx_, &event_)); }

  void ExpectSignal() { CHECK_OK(ctx_, KivSdStdEventTimedWait(ctx_, &event_, 0)); }
  void ExpectNoSignal() {
    CHECK_OUTCOME(ctx_, KivSdStdEventTimedWait(ctx_, &event_, 0), KIV_ST_EVENT_TIMEOUT, 258u);
  }

  Context ctx_;
  KivHandle event_ = nullptr;
};

TEST_F(StandardEvent, IsNotSignalledWhenCreated) { ExpectNoSignal(); }

TEST_F(StandardEvent, SetSignalsItForOneThread) {
  CHECK_OK(ctx_, KivSdStdEventSet(ctx_, &event_));
  CHECK_OK(ctx_, KivSdStdEventSet(ctx_, &event_));
  ExpectSignal();
  ExpectNoSignal();
  CHECK_OK(ctx_, KivSdStdEventSet(ctx_, &event_));
  CHECK_OK(ctx_, KivSdStdEventWait(ctx_, &event_));
  ExpectNoSignal();
}

TEST_F(StandardEvent, ResetClearsTheSignal) {
  CHECK_OK(ctx_, KivSdStdEventSet(ctx_, &event_));
  CHECK_OK(ctx_, KivSdStdEventReset(ctx_, &event_));
  ExpectNoSignal();
}

TEST_F(StandardEvent, WaitsUntilTheTimeOut) {
  const Stopwatch watch;
  CHECK_OUTCOME(ctx_, KivSdStdEventTimedWait(ctx_, &event_, static_cast<int32_t>(kShortMs)),
                KIV_ST_EVENT_TIMEOUT, 258u);
  EXPECT_GE(watch.ElapsedMs(), kShortAtLeastMs);
  EXPECT_LT(watch.ElapsedMs(), kLimitMs);
}

TEST_F(StandardEvent, WaitsForeverUntilAnotherThreadSetsIt) {
  const Later set([&] { KivSdStdEventSet(nullptr, &event_); });
  CHECK_OK(ctx_, KivSdStdEventWait(ctx_, &event_));
}

TEST_F(StandardEvent, WaitsForeverOnANegativeTimeOut) {
  for (const int32_t timeoutMs : {-1, -2, INT32_MIN}) {
    const Later set([&] { KivSdStdEventSet(nullptr, &event_); });
    CHECK_OK(ctx_, KivSdStdEventTimedWait(ctx_, &event_, timeoutMs));
  }
}

TEST_F(StandardEvent, BadHandlesFailWithTheSystemsError) {
  KivHandle bad = BadHandle();
  CHECK_OUTCOME(ctx_, KivSdStdEventSet(ctx_, &bad), KIV_ST_EVENT_CLEAR, kOsBadHandle);
  CHECK_OUTCOME(ctx_, KivSdStdEventReset(ctx_, &bad), KIV_ST_EVENT_SET, kOsBadHandle);
  CHECK_OUTCOME(ctx_, KivSdStdEventWait(ctx_, &bad), KIV_ST_EVENT_WAIT, kOsBadHandle);
  CHECK_OUTCOME(ctx_, KivSdStdEventTimedWait(ctx_, &bad, 0), KIV_ST_EVENT_WAIT, kOsBadHandle);
  CHECK_OUTCOME(ctx_, KivSdStdEventClose(ctx_, &bad), KIV_ST_EVENT_CLOSE, kOsBadHandle);
  EXPECT_EQ(bad, BadHandle());
}

TEST_F(StandardEvent, WorksWithoutAContext) {
  KivHandle event = nullptr;
  EXPECT_EQ(KivSdStdEventCreate(nullptr, &event), KIV_ST_OK);
  EXPECT_EQ(KivSdStdEventSet(nullptr, &event), KIV_ST_OK);
  EXPECT_EQ(KivSdStdEventWait(nullptr, &event), KIV_ST_OK);
  EXPECT_EQ(KivSdStdEventReset(nullptr, &event), KIV_ST_OK);
  EXPECT_EQ(KivSdStdEventTimedWait(nullptr, &event, 0), KIV_ST_EVENT_TIMEOUT);
  const KivHandle before = event;
  EXPECT_EQ(KivSdStdEventClose(nullptr, &event), KIV_ST_OK);
  EXPECT_EQ(event, before);
  EXPECT_FALSE(IsOpenHandle(before));
}

// ---- Counting events ----

class CountingEvent : public testing::Test {
 protected:
  void TearDown() override {
    if (event_ != nullptr) {
      EXPECT_EQ(KivSdCountingEventClose(nullptr, &event_), KIV_ST_OK);
    }
  }

  void Make(int32_t initialCount) {
    CHECK_OK(ctx_, KivSdCountingEventCreate(ctx_, &event_, initialCount));
    ASSERT_NE(event_, nullptr);
  }

  Context ctx_;
  KivHandle event_ = nullptr;
};

TEST_F(CountingEvent, CountsEverySet) {
  Make(1);
  CHECK_OK(ctx_, KivSdCountingEventSet(ctx_, &event_));
  CHECK_OK(ctx_, KivSdCountingEventSet(ctx_, &event_));
  CHECK_OK(ctx_, KivSdCountingEventWait(ctx_, &event_));
  CHECK_OK(ctx_, KivSdCountingEventTimedWait(ctx_, &event_, 0));
  CHECK_OK(ctx_, KivSdCountingEventTimedWait(ctx_, &event_, kForEverMs));
  CHECK_OUTCOME(ctx_, KivSdCountingEventTimedWait(ctx_, &event_, 0), KIV_ST_SEM_TIMEOUT, 258u);
}

TEST_F(CountingEvent, HoldsTheLargestCount) {
  Make(INT32_MAX - 1);
  CHECK_OK(ctx_, KivSdCountingEventSet(ctx_, &event_));
  CHECK_OUTCOME(ctx_, KivSdCountingEventSet(ctx_, &event_), KIV_ST_SEM_OVERFLOW, kOsTooManyPosts);
}

TEST_F(CountingEvent, IsNotCreatedWithANegativeCount) {
  KivHandle made = BadHandle();
  CHECK_OUTCOME(ctx_, KivSdCountingEventCreate(ctx_, &made, -1), KIV_ST_SEM_CREATE, kOsBadArgument);
  EXPECT_EQ(made, nullptr);
}

TEST_F(CountingEvent, WaitsForeverOnANegativeTimeOutUntilAnotherThreadSetsIt) {
  Make(0);
  {
    const Later set([&] { KivSdCountingEventSet(nullptr, &event_); });
    CHECK_OK(ctx_, KivSdCountingEventWait(ctx_, &event_));
  }
  const Later set([&] { KivSdCountingEventSet(nullptr, &event_); });
  CHECK_OK(ctx_, KivSdCountingEventTimedWait(ctx_, &event_, 0x1'FFFFFFFE));
}

TEST_F(CountingEvent, UsesOnlyTheLowHalfOfTheTimeOut) {
  Make(0);
  const Stopwatch watch;
  CHECK_OUTCOME(ctx_, KivSdCountingEventTimedWait(ctx_, &event_, 0xABCD'00000000 | kShortMs),
                KIV_ST_SEM_TIMEOUT, 258u);
  EXPECT_GE(watch.ElapsedMs(), kShortAtLeastMs);
  EXPECT_LT(watch.ElapsedMs(), kLimitMs);
}

TEST_F(CountingEvent, RefusesNullPointersAndBadHandles) {
  CHECK_ARGUMENT(ctx_, KivSdCountingEventCreate(ctx_, nullptr, 0));
  CHECK_ARGUMENT(ctx_, KivSdCountingEventClose(ctx_, nullptr));
  CHECK_ARGUMENT(ctx_, KivSdCountingEventSet(ctx_, nullptr));
  CHECK_ARGUMENT(ctx_, KivSdCountingEventWait(ctx_, nullptr));
  CHECK_ARGUMENT(ctx_, KivSdCountingEventTimedWait(ctx_, nullptr, 0));
  KivHandle bad = BadHandle();
  CHECK_OUTCOME(ctx_, KivSdCountingEventSet(ctx_, &bad), KIV_ST_SEM_CLEAR, kOsBadHandle);
  CHECK_OUTCOME(ctx_, KivSdCountingEventWait(ctx_, &bad), KIV_ST_SEM_REQUEST, kOsBadHandle);
  CHECK_OUTCOME(ctx_, KivSdCountingEventTimedWait(ctx_, &bad, 0), KIV_ST_SEM_REQUEST, kOsBadHandle);
  CHECK_OUTCOME(ctx_, KivSdCountingEventClose(ctx_, &bad), KIV_ST_SEM_CLOSE, kOsBadHandle);
  EXPECT_EQ(bad, BadHandle());
}

}  // namespace
