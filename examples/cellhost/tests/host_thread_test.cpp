// Threads of the server: when they have a record, and that their owner waits for them also when the
// system's waits fail.
#include "host/host_thread.h"

#include <gtest/gtest.h>

#include <atomic>

#include "host/thread_record.h"
#include "host_fixture.h"
#include "kivsdu/time.h"
#include "support/import_patch.h"
#include "support/waiting.h"

namespace cellhost {
namespace {

using kiv::test::kLimitMs;
using kiv::test::kShortMs;
using kiv::test::Later;
using kiv::test::ScriptedImport;

constexpr kiv::test::Script kWaitFails = {.result = UINT32_MAX, .error = 6};

// Work that goes on until it may end.
struct Work {
  static void Run(void* self) {
    Work* work = static_cast<Work*>(self);
    work->hasRecord = ThisContext() != nullptr;
    work->runs = true;
    while (!work->mayEnd) KivSdSleep(nullptr, 1);
    work->runs = false;
  }

  std::atomic<bool> hasRecord{false};
  std::atomic<bool> runs{false};
  std::atomic<bool> mayEnd{false};
};

class HostThreadTest : public testing::Test {
 protected:
  test::InHost host_;
  Work work_;
};

TEST_F(HostThreadTest, HasARecordAndEndsWithinALimit) {
  HostThread thread;
  EXPECT_TRUE(thread.EndsWithin(0)) << "it was not started";
  ASSERT_TRUE(thread.Start(Work::Run, &work_));
  EXPECT_FALSE(thread.EndsWithin(kShortMs));
  work_.mayEnd = true;
  EXPECT_TRUE(thread.EndsWithin(kLimitMs));
  EXPECT_TRUE(work_.hasRecord);
  EXPECT_TRUE(thread.EndsWithin(0));
}

TEST_F(HostThreadTest, IsWaitedForThoughEveryWaitFails) {
  testing::internal::CaptureStderr();
  {
    const ScriptedImport failing("WaitForSingleObject", kWaitFails);
    HostThread thread;
    ASSERT_TRUE(thread.Start(Work::Run, &work_)) << "it has a record all the same";
    EXPECT_FALSE(thread.EndsWithin(kShortMs));
    const Later end([this] { work_.mayEnd = true; });
    EXPECT_TRUE(thread.EndsWithin(kLimitMs));
    EXPECT_FALSE(work_.runs);
  }
  EXPECT_NE(testing::internal::GetCapturedStderr(), "");
}

TEST_F(HostThreadTest, IsWaitedForAtItsEndThoughEveryWaitFails) {
  testing::internal::CaptureStderr();
  {
    const ScriptedImport failing("WaitForSingleObject", kWaitFails);
    const Later end([this] { work_.mayEnd = true; });
    {
      HostThread thread;
      ASSERT_TRUE(thread.Start(Work::Run, &work_));
    }
    EXPECT_TRUE(work_.mayEnd && !work_.runs);
  }
  testing::internal::GetCapturedStderr();
}

TEST_F(HostThreadTest, IsWaitedForThoughItsSignalsFail) {
  testing::internal::CaptureStderr();
  {
    const ScriptedImport failing("SetEvent", {.result = 0, .error = 6});
    HostThread thread;
    ASSERT_TRUE(thread.Start(Work::Run, &work_));
    work_.mayEnd = true;
    EXPECT_TRUE(thread.EndsWithin(-1));
    EXPECT_FALSE(work_.runs);
  }
  testing::internal::GetCapturedStderr();
}

}  // namespace
}  // namespace cellhost
