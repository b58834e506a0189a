// Threads of the C++ layer.
#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <utility>

#include "kivsdu/kivsdu.hpp"
#include "support/import_patch.h"

namespace {

using kiv::test::ScriptedImport;
using kivsdu::ErrorCode;
using kivsdu::Event;
using kivsdu::Thread;

TEST(CppThread, RunsItsRoutineAndIsJoinedWithItsOwner) {
  std::atomic<uint32_t> runner = 0;
  uint32_t id = 0;
  {
    Thread thread([&] { runner = kivsdu::ThisThreadId(); });
    EXPECT_TRUE(thread.IsJoinable());
    id = thread.Id();
  }
  EXPECT_EQ(runner, id);
  EXPECT_NE(runner, kivsdu::ThisThreadId());
}

TEST(CppThread, OwnsWhatItsRoutineHolds) {
  auto number = std::make_unique<int>(41);
  std::atomic<int> result = 0;
  Thread thread([number = std::move(number), &result] { result = *number + 1; });
  thread.Join();
  EXPECT_FALSE(thread.IsJoinable());
  thread.Join();  // does nothing
  EXPECT_EQ(result, 42);
}

TEST(CppThread, IsMovedToAnotherOwner) {
  Event go;
  Thread first([&] { go.Wait(); });
  const uint32_t id = first.Id();
  Thread second(std::move(first));
  EXPECT_FALSE(first.IsJoinable());
  Thread third;
  third = std::move(second);
  EXPECT_FALSE(second.IsJoinable());
  EXPECT_EQ(third.Id(), id);
  go.Set();
}

TEST(CppThread, RunsOnAfterItWasDetached) {
  Event done;
  Thread thread([&] { done.Set(); });
  thread.Detach();
  EXPECT_FALSE(thread.IsJoinable());
  done.Wait();
}

TEST(CppThread, HasAPriority) {
  Event go;
  Thread thread([&] { go.Wait(); });
  EXPECT_EQ(thread.Priority(), KIV_THREAD_PRIORITY_NORMAL);
  thread.SetPriority(KIV_THREAD_PRIORITY_BELOW_NORMAL);
  EXPECT_EQ(thread.Priority(), KIV_THREAD_PRIORITY_BELOW_NORMAL);
  {
    const ScriptedImport get("GetThreadPriority", {.result = 0x7FFFFFFF, .error = 5});
    const ScriptedImport set("SetThreadPriority", {.result = 0, .error = 5});
    ErrorCode error;
    EXPECT_EQ(thread.Priority(error), 0);
    EXPECT_EQ(error.Status(), KIV_ST_THREAD_PRIORITY_GET);
    EXPECT_EQ(error.OsError(), 5u);
    EXPECT_THROW(thread.SetPriority(0), kivsdu::Failure);
  }
  go.Set();
}

// The copy of the routine is freed, and nothing is left to join.
TEST(CppThread, ThatCannotBeStartedThrows) {
  const ScriptedImport failing("CreateThread", {.result = 0, .error = 8});
  auto number = std::make_shared<int>(0);
  const auto routine = [number] { ++*number; };
  EXPECT_THROW(Thread{routine}, kivsdu::Failure);
  ErrorCode error;
  const Thread thread(routine, 0, error);
  EXPECT_EQ(error.Status(), KIV_ST_THREAD_CREATE);
  EXPECT_EQ(error.OsError(), 8u);
  EXPECT_FALSE(thread.IsJoinable());
  EXPECT_EQ(number.use_count(), 2);  // of the test and of `routine`
}

}  // namespace
