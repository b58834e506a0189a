// Sleeping, the process clock, the wall clock, the system clock and the fast timer.
#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <ctime>

#include "kivsdu/kivsdu.h"
#include "support/context.h"
#include "support/guarded.h"
#include "support/import_patch.h"
#include "support/system_interface.h"

namespace {

using kiv::test::Context;
using kiv::test::Guarded;
using kiv::test::ImportPatch;
using kiv::test::kSpoilt;
using kiv::test::ScriptedImport;

// ---- Sleeping ----

TEST(Sleep, CallsTheSystemAndClearsTheRecord) {
  for (const uint32_t timeMs : {0u, 1u, 0x80000000u, 0xFFFFFFFFu}) {
    const ScriptedImport sleep("Sleep", {.error = 5});
    Context ctx;
    KivSdSleep(ctx, timeMs);
    EXPECT_EQ(ctx.status(), KIV_ST_OK);
    EXPECT_EQ(ctx.osError(), 0u);
    KivSdSleep(nullptr, timeMs);
    ASSERT_EQ(sleep.calls().size(), 2u);
    EXPECT_EQ(static_cast<uint32_t>(sleep.calls()[0][0]), timeMs);
    EXPECT_EQ(static_cast<uint32_t>(sleep.calls()[1][0]), timeMs);
  }
}

// ---- The process's clock ----

TEST(ProcessClock, MatchesTheRuntimesClock) {
  Context ctx;
  Guarded<uint32_t> ticks;
  const clock_t before = clock();
  CHECK_OK(ctx, KivSdClock(ctx, ticks));
  const clock_t after = clock();
  EXPECT_GE(*ticks, static_cast<uint32_t>(before));
  EXPECT_LE(*ticks, static_cast<uint32_t>(after));
  EXPECT_EQ(KivSdClock(nullptr, ticks), KIV_ST_OK);
}

TEST(ProcessClock, ReturnsEveryValueExceptMinusOne) {
  for (const uint32_t value : {0u, 1u, 0x7FFFFFFFu, 0x80000000u, 0xFFFFFFFEu}) {
    const ScriptedImport clock("clock", {.result = value, .error = 5});
    Context ctx;
    Guarded<uint32_t> ticks;
    CHECK_OK(ctx, KivSdClock(ctx, ticks));
    EXPECT_EQ(*ticks, value);
  }
}

TEST(ProcessClock, FailsWithTheRuntimesErrorIfUnavailable) {
  const ScriptedImport clock("clock", {.result = UINTPTR_MAX, .error = 33});
  Context ctx;
  uint32_t ticks = 7;
  CHECK_OUTCOME(ctx, KivSdClock(ctx, &ticks), KIV_ST_CLOCK, 33u);
  EXPECT_EQ(ticks, 7u);
  EXPECT_EQ(KivSdClock(nullptr, &ticks), KIV_ST_CLOCK);
}

TEST(ProcessClock, RefusesNullTicks) {
  Context ctx;
  CHECK_ARGUMENT(ctx, KivSdClock(ctx, nullptr));
  EXPECT_EQ(KivSdClock(nullptr, nullptr), KIV_ST_ARGUMENT);
}

// ---- The wall clock ----

TEST(WallClock, MatchesTheRuntimesClock) {
  Context ctx;
  Guarded<uint64_t> seconds;
  const time_t before = std::time(nullptr);
  CHECK_OK(ctx, KivSdTime(ctx, seconds));
  const time_t after = std::time(nullptr);
  EXPECT_GE(*seconds, static_cast<uint64_t>(before));
  EXPECT_LE(*seconds, static_cast<uint64_t>(after));
  EXPECT_EQ(KivSdTime(nullptr, seconds), KIV_ST_OK);
}

TEST(WallClock, HasSixtyFourBits) {
  const ScriptedImport time("_time64", {.result = 0x123456789});
  uint64_t seconds = 0;
  EXPECT_EQ(KivSdTime(nullptr, &seconds), KIV_ST_OK);
  EXPECT_EQ(seconds, 0x123456789u);
}

TEST(WallClock, RefusesNullSeconds) {
  Context ctx;
  CHECK_ARGUMENT(ctx, KivSdTime(ctx, nullptr));
  EXPECT_EQ(KivSdTime(nullptr, nullptr), KIV_ST_ARGUMENT);
}

// ---- The system's clock ----

TEST(SystemClock, CountsWholeSecondsAndFallsBackToZero) {
  struct {
    uint32_t ticksMs;
    uint64_t seconds;
  } const cases[] = {{0, 0}, {999, 0}, {1000, 1}, {0xFFFFFFFF, 4294967}, {0x80000000, 2147483}};
  for (const auto& [ticksMs, expected] : cases) {
    const ScriptedImport ticks("GetTickCount", {.result = ticksMs});
    Context ctx;
    Guarded<uint64_t> seconds;
    CHECK_OK(ctx, KivSdTimeElapsedOS(ctx, seconds));
    EXPECT_EQ(*seconds, expected);
    EXPECT_EQ(KivSdTimeElapsedOS(nullptr, seconds), KIV_ST_OK);
  }
}

TEST(SystemClock, RefusesNullSeconds) {
  Context ctx;
  CHECK_ARGUMENT(ctx, KivSdTimeElapsedOS(ctx, nullptr));
  EXPECT_EQ(KivSdTimeElapsedOS(nullptr, nullptr), KIV_ST_ARGUMENT);
}

// ---- The UTC timestamp ----

TEST(UtcTimestamp, IsTheWallClockWithItsMilliseconds) {
  Context ctx;
  Guarded<KivSdUtcTimestamp> stamp;
  uint64_t before = 0;
  uint64_t after = 0;
  KivSdTime(nullptr, &before);
  CHECK_OK(ctx, KivSdGetUtcTimestamp(ctx, 0, stamp));
  KivSdTime(nullptr, &after);
  // The runtime's two clocks may tick at slightly different moments.
  EXPECT_GE(stamp->seconds + 1ull, before);
  EXPECT_LE(stamp->seconds, after + 1);
  EXPECT_EQ(stamp->microseconds % 1000, 0u);
  EXPECT_LT(stamp->microseconds, 1000000u);
  EXPECT_EQ(KivSdGetUtcTimestamp(nullptr, UINT64_MAX, stamp), KIV_ST_OK);
}

struct __timeb64 fakeNow;

void FakeNow(struct __timeb64* now) { *now = fakeNow; }

TEST(UtcTimestamp, HoldsTheLowHalfOfTheSecondsAndTheMillisecondsTimes1000) {
  const ImportPatch patch("_ftime64", reinterpret_cast<void*>(&FakeNow));
  struct {
    int64_t seconds;
    uint16_t milliseconds;
    uint32_t low, microseconds;
  } const cases[] = {{0, 0, 0, 0},
                     {1795267035, 1, 1795267035, 1000},
                     {0x123456789, 999, 0x23456789, 999000},
                     {0xFFFFFFFF, 500, 0xFFFFFFFF, 500000}};
  for (const auto& c : cases) {
    fakeNow = {.time = c.seconds, .millitm = c.milliseconds, .timezone = -60, .dstflag = 1};
    Context ctx;
    Guarded<KivSdUtcTimestamp> stamp;
    CHECK_OK(ctx, KivSdGetUtcTimestamp(ctx, 12345, stamp));
    EXPECT_EQ(stamp->seconds, c.low);
    EXPECT_EQ(stamp->microseconds, c.microseconds);
  }
}

TEST(UtcTimestamp, NeedsARecord) {
  Context ctx;
  CHECK_ARGUMENT(ctx, KivSdGetUtcTimestamp(ctx, 0, nullptr));
  EXPECT_EQ(KivSdGetUtcTimestamp(nullptr, 0, nullptr), KIV_ST_ARGUMENT);
}

// ---- The fast timer ----
//
// The library queries the counter's frequency once per process; tests of that run in new processes.

int64_t fakeCount;
int64_t fakeFrequency;
int frequencyCalls;

BOOL WINAPI FakeCounter(LARGE_INTEGER* count) {
  count->QuadPart = fakeCount;
  return TRUE;
}

BOOL WINAPI FakeFrequency(LARGE_INTEGER* frequency) {
  ++frequencyCalls;
  frequency->QuadPart = fakeFrequency;
  return TRUE;
}

// A fake performance counter.
class FakePerformanceCounter {
 public:
  explicit FakePerformanceCounter(int64_t frequency) {
    fakeFrequency = frequency;
    frequencyCalls = 0;
  }

 private:
  ImportPatch counter_{"QueryPerformanceCounter", reinterpret_cast<void*>(&FakeCounter)};
  ImportPatch frequency_{"QueryPerformanceFrequency", reinterpret_cast<void*>(&FakeFrequency)};
};

void ExpectTimer(int64_t count, uint32_t expected) {
  fakeCount = count;
  uint32_t microseconds = 7;
  EXPECT_EQ(KivSdGetFastTimer(nullptr, &microseconds), KIV_ST_OK);
  EXPECT_EQ(microseconds, expected) << count;
}

// Runs the steps of a test that needs a process in which the timer has not been read yet.
[[noreturn]] void RunAndEnd(void (*steps)()) {
  steps();
  std::_Exit(testing::Test::HasFailure() ? 1 : 0);
}

TEST(FastTimer, CountsMicrosecondsOfTheCounter) {
  using Clock = std::chrono::steady_clock;
  uint32_t start = 0;
  uint32_t end = 0;
  const Clock::time_point outerStart = Clock::now();
  EXPECT_EQ(KivSdGetFastTimer(nullptr, &start), KIV_ST_OK);
  const Clock::time_point innerStart = Clock::now();
  KivSdSleep(nullptr, 20);
  const Clock::time_point innerEnd = Clock::now();
  EXPECT_EQ(KivSdGetFastTimer(nullptr, &end), KIV_ST_OK);
  const Clock::time_point outerEnd = Clock::now();

  const auto microseconds = [](Clock::duration time) {
    return std::chrono::duration_cast<std::chrono::microseconds>(time).count();
  };
  const uint32_t elapsed = end - start;
  EXPECT_GE(elapsed + 1, microseconds(innerEnd - innerStart));
  EXPECT_LE(elapsed, microseconds(outerEnd - outerStart) + 1);
  EXPECT_GE(elapsed, 10000u);
}

TEST(FastTimer, IgnoresItsContext) {
  Context ctx;
  uint32_t microseconds = 0;
  EXPECT_EQ(KivSdGetFastTimer(static_cast<KivSdContext*>(ctx), &microseconds), KIV_ST_OK);
  EXPECT_EQ(KivSdGetFastTimer(static_cast<KivSdContext*>(ctx), nullptr), KIV_ST_ARGUMENT);
  EXPECT_TRUE(ctx.IsUntouched());
}

TEST(FastTimer, FailsIfTheCounterFails) {
  const ScriptedImport counter("QueryPerformanceCounter", {.result = FALSE, .error = 50});
  uint32_t microseconds = 7;
  EXPECT_EQ(KivSdGetFastTimer(nullptr, &microseconds), KIV_ST_FAST_TIMER);
  EXPECT_EQ(microseconds, 7u);
}

void FailThenSucceed() {
  uint32_t microseconds = 7;
  for (int i = 0; i < 2; ++i) {
    const ScriptedImport frequency("QueryPerformanceFrequency", {.result = FALSE, .error = 50});
    EXPECT_EQ(KivSdGetFastTimer(nullptr, &microseconds), KIV_ST_FAST_TIMER);
    EXPECT_EQ(microseconds, 7u);
    EXPECT_EQ(frequency.calls().size(), 1u);
  }
  const FakePerformanceCounter counter(1000000);
  ExpectTimer(123, 123);
  EXPECT_EQ(frequencyCalls, 1);
}

TEST(FastTimerDeathTest, RetriesAFailedQueryOfTheFrequency) {
  EXPECT_EXIT(RunAndEnd(&FailThenSucceed), testing::ExitedWithCode(0), "");
}

void FailWithoutATick() {
  const FakePerformanceCounter counter(0);
  uint32_t microseconds = 7;
  EXPECT_EQ(KivSdGetFastTimer(nullptr, &microseconds), KIV_ST_FAST_TIMER);
  EXPECT_EQ(microseconds, 7u);
}

TEST(FastTimerDeathTest, FailsIfTheFrequencyIsZero) {
  EXPECT_EXIT(RunAndEnd(&FailWithoutATick), testing::ExitedWithCode(0), "");
}

void ReadOften() {
  const FakePerformanceCounter counter(10000000);
  ExpectTimer(0, 0);
  ExpectTimer(9, 0);
  ExpectTimer(10, 1);
  ExpectTimer(42949672959, 0xFFFFFFFF);
  ExpectTimer(42949672960, 0);  // 32 bits wrap
  fakeFrequency = 1;            // would change the result if queried again
  ExpectTimer(10000000, 1000000);
  EXPECT_EQ(frequencyCalls, 1);
}

TEST(FastTimerDeathTest, QueriesTheFrequencyOnce) {
  EXPECT_EXIT(RunAndEnd(&ReadOften), testing::ExitedWithCode(0), "");
}

void PassTheWrapOfTheProduct() {
  const FakePerformanceCounter counter(10000000);
  ExpectTimer(9223372036854, 3214202341);
  ExpectTimer(9223372036855, 1080764955);  // the product overflows, the quotient is -922337203685
  ExpectTimer(9223372036865, 1080764956);
  ExpectTimer(18446744073709, 0);
  ExpectTimer(18446744073710, 0);
  ExpectTimer(-10, 0xFFFFFFFF);
}

TEST(FastTimerDeathTest, DividesTheProductAsASignedNumber) {
  EXPECT_EXIT(RunAndEnd(&PassTheWrapOfTheProduct), testing::ExitedWithCode(0), "");
}

}  // namespace
