// Threads: start and join, suspend and resume, exit codes, identifiers and priorities.
// thread_failure_test checks the arguments of the system calls and their failures.
#include <gtest/gtest.h>

#include <atomic>
#include <set>
#include <string>
#include <vector>

#include "kivsdu/kivsdu.h"
#include "support/child_process.h"
#include "support/context.h"
#include "support/os_errors.h"
#include "support/sanitizers.h"
#include "support/system_info.h"
#include "support/waiting.h"

namespace {

using kiv::test::ChildProcess;
using kiv::test::Context;
using kiv::test::ExitCodeOf;
using kiv::test::kLimitMs;
using kiv::test::kOsBadArgument;
using kiv::test::kOsBadHandle;
using kiv::test::kRoleDone;
using kiv::test::kShortMs;
using kiv::test::OwnThreadId;
using kiv::test::RegisteredRole;
using kiv::test::RoleArguments;
using kiv::test::SharedSignal;
using kiv::test::UniqueName;

constexpr uint64_t kIgnored = 0xDEADBEEF'DEADBEEF;

KivHandle BadHandle() { return reinterpret_cast<KivHandle>(uintptr_t{0x7FFFFFF0}); }

// A wait for an event takes any handle that can be waited for.
bool EndsWithin(KivHandle thread, uint32_t timeoutMs) {
  return KivSdEventWait(nullptr, &thread, timeoutMs) == KIV_ST_OK;
}

bool IsOpen(KivHandle thread) {
  int32_t ignored = 0;
  return KivSdThreadPriorityGet(nullptr, &thread, &ignored) == KIV_ST_OK;
}

uint32_t NoteIdentifier(void* argument) {
  *static_cast<uint32_t*>(argument) = OwnThreadId();
  return 7;
}

uint32_t AwaitSignal(void* argument) {
  static_cast<const SharedSignal*>(argument)->Await();
  return 0;
}

// A thread that waits for a signal; the end of the scope sets the signal at the latest.
class WaitingThread {
 public:
  WaitingThread() {
    CHECK_OK(ctx_, KivSdThreadCreate(ctx_, AwaitSignal, kIgnored, 0, &mayEnd_, &id_, &handle_));
  }
  ~WaitingThread() {
    LetEnd();
    CHECK_OK(ctx_, KivSdThreadJoin(ctx_, &handle_));
    CHECK_OK(ctx_, KivSdThreadDelete(ctx_, &handle_));
  }

  void LetEnd() { mayEnd_.Set(); }
  KivHandle* handle() { return &handle_; }
  uint32_t id() const { return id_; }

 private:
  Context ctx_;
  SharedSignal mayEnd_{UniqueName("may-end")};
  uint32_t id_ = 0;
  KivHandle handle_ = nullptr;
};

TEST(Thread, RunsItsRoutineWithItsArgumentAndIdentifier) {
  Context ctx;
  for (const uint32_t stackBytes : {0u, 1u, 65'536u, 1u << 20}) {
    uint32_t ran = 0;
    uint32_t id = 0;
    KivHandle thread = nullptr;
    CHECK_OK(ctx, KivSdThreadCreate(ctx, NoteIdentifier, kIgnored, stackBytes, &ran, &id, &thread));
    ASSERT_NE(thread, nullptr);
    CHECK_OK(ctx, KivSdThreadJoin(ctx, &thread));
    EXPECT_NE(id, 0u);
    EXPECT_EQ(ran, id);
    EXPECT_NE(ran, OwnThreadId());
    EXPECT_EQ(ExitCodeOf(thread), 7u) << "the routine's result";
    CHECK_OK(ctx, KivSdThreadDelete(ctx, &thread));
  }
}

struct Start {
  uint32_t id = 0;
  std::atomic<bool> known{false};
};

uint32_t CompareIdentifier(void* argument) {
  auto* start = static_cast<Start*>(argument);
  start->known = start->id == OwnThreadId();
  return 0;
}

TEST(Thread, FindsItsIdentifierStoredWhenItStarts) {
  Context ctx;
  for (int round = 0; round < 300; ++round) {
    Start start;
    KivHandle thread = nullptr;
    CHECK_OK(ctx,
             KivSdThreadCreate(ctx, CompareIdentifier, kIgnored, 0, &start, &start.id, &thread));
    CHECK_OK(ctx, KivSdThreadJoin(ctx, &thread));
    ASSERT_TRUE(start.known) << round;
    CHECK_OK(ctx, KivSdThreadDelete(ctx, &thread));
  }
}

TEST(Thread, ManyRunAtOnceWithDistinctIdentifiers) {
  constexpr size_t kThreads = 48;
  std::vector<WaitingThread> threads(kThreads);
  std::set<KivHandle> handles;
  std::set<uint32_t> ids;
  for (WaitingThread& thread : threads) {
    handles.insert(*thread.handle());
    ids.insert(thread.id());
  }
  EXPECT_EQ(handles.size(), kThreads);
  EXPECT_EQ(ids.size(), kThreads);
}

TEST(Thread, IsNotStartedWithoutARoutineOrResultPointers) {
  Context ctx;
  uint32_t ran = 0;
  uint32_t id = 4711;
  KivHandle thread = BadHandle();
  CHECK_ARGUMENT(ctx, KivSdThreadCreate(ctx, nullptr, 0, 0, &ran, &id, &thread));
  CHECK_ARGUMENT(ctx, KivSdThreadCreate(ctx, NoteIdentifier, 0, 0, &ran, nullptr, &thread));
  CHECK_ARGUMENT(ctx, KivSdThreadCreate(ctx, NoteIdentifier, 0, 0, &ran, &id, nullptr));
  EXPECT_EQ(thread, BadHandle());
  EXPECT_EQ(id, 4711u);
}

// A thread that makes a second handle of itself and then waits.
struct Doubled {
  SharedSignal mayEnd{UniqueName("may-end")};
  SharedSignal hasHandle{UniqueName("has-handle")};
  KivHandle self = nullptr;
};

uint32_t DoubleItsHandle(void* argument) {
  auto* doubled = static_cast<Doubled*>(argument);
  EXPECT_EQ(KivSdThreadHandleGet(nullptr, &doubled->self), KIV_ST_OK);
  doubled->hasHandle.Set();
  doubled->mayEnd.Await();
  return 9;
}

TEST(Thread, DeleteClosesTheHandleWhileTheThreadRunsOn) {
  Context ctx;
  Doubled doubled;
  uint32_t id = 0;
  KivHandle thread = nullptr;
  CHECK_OK(ctx, KivSdThreadCreate(ctx, DoubleItsHandle, 0, 0, &doubled, &id, &thread));
  doubled.hasHandle.Await();
  const KivHandle before = thread;
  CHECK_OK(ctx, KivSdThreadDelete(ctx, &thread));
  EXPECT_EQ(thread, before);
  EXPECT_FALSE(IsOpen(before)) << "the handle is still open";
  EXPECT_FALSE(EndsWithin(doubled.self, 0));
  doubled.mayEnd.Set();
  EXPECT_TRUE(EndsWithin(doubled.self, kLimitMs));
  EXPECT_EQ(ExitCodeOf(doubled.self), 9u);
  CHECK_OK(ctx, KivSdThreadDelete(ctx, &doubled.self));
}

TEST(Thread, DeleteOfABadHandleFails) {
  Context ctx;
  KivHandle bad = BadHandle();
  CHECK_OUTCOME(ctx, KivSdThreadDelete(ctx, &bad), KIV_ST_THREAD_DELETE, kOsBadHandle);
  EXPECT_EQ(bad, BadHandle());
}

TEST(ThreadDelete, RefusesANullPointer) {
  Context ctx;
  CHECK_ARGUMENT(ctx, KivSdThreadDelete(ctx, nullptr));
  EXPECT_EQ(KivSdThreadDelete(nullptr, nullptr), KIV_ST_ARGUMENT);
}

TEST(Thread, JoinWaitsForTheEndAndIgnoresFailures) {
  Context ctx;
  WaitingThread waiting;
  {
    const kiv::test::Later let([&] { waiting.LetEnd(); });
    CHECK_OK(ctx, KivSdThreadJoin(ctx, waiting.handle()));
    EXPECT_TRUE(EndsWithin(*waiting.handle(), 0));
  }
  CHECK_OK(ctx, KivSdThreadJoin(ctx, waiting.handle()));
  KivHandle bad = BadHandle();
  CHECK_OK(ctx, KivSdThreadJoin(ctx, &bad));
}

struct Exit {
  Context ctx;
  uint32_t code;
  bool wentOn;
};

uint32_t ExitEarly(void* argument) {
  auto* exit = static_cast<Exit*>(argument);
  KivSdThreadExit(exit->ctx, exit->code);
  exit->wentOn = true;
  return 1;
}

TEST(Thread, ExitEndsItWithACodeAndLeavesTheRecordAlone) {
  Context ctx;
  for (const uint32_t code : {0u, 5u, 0xFFFFFFFFu}) {
    Exit exit{{}, code, false};
    uint32_t id = 0;
    KivHandle thread = nullptr;
    CHECK_OK(ctx, KivSdThreadCreate(ctx, ExitEarly, 0, 0, &exit, &id, &thread));
    CHECK_OK(ctx, KivSdThreadJoin(ctx, &thread));
    EXPECT_EQ(ExitCodeOf(thread), code);
    EXPECT_FALSE(exit.wentOn);
    EXPECT_TRUE(exit.ctx.IsUntouched());
    CHECK_OK(ctx, KivSdThreadDelete(ctx, &thread));
  }
}

// ---- Stopping and resuming ----

TEST(ThreadSuspend, IsUndoneByAsManyResumesAsSuspends) {
  if (kiv::test::kUnderThreadSanitizer) GTEST_SKIP() << "the signal comes too late";
  Context ctx;
  WaitingThread waiting;
  for (int i = 0; i < 3; ++i) CHECK_OK(ctx, KivSdThreadSuspend(ctx, waiting.handle()));
  waiting.LetEnd();
  for (int i = 0; i < 2; ++i) {
    EXPECT_FALSE(EndsWithin(*waiting.handle(), kShortMs)) << i;
    CHECK_OK(ctx, KivSdThreadResume(ctx, waiting.handle()));
  }
  EXPECT_FALSE(EndsWithin(*waiting.handle(), kShortMs));
  CHECK_OK(ctx, KivSdThreadResume(ctx, waiting.handle()));
  EXPECT_TRUE(EndsWithin(*waiting.handle(), kLimitMs));
}

uint32_t SuspendOneself(void* argument) {
  return KivSdThreadSuspend(*static_cast<Context*>(argument), nullptr);
}

TEST(ThreadSuspend, OfNullStopsTheCallingThread) {
  Context ctx;
  Context own;
  uint32_t id = 0;
  KivHandle thread = nullptr;
  CHECK_OK(ctx, KivSdThreadCreate(ctx, SuspendOneself, 0, 0, &own, &id, &thread));
  EXPECT_FALSE(EndsWithin(thread, kShortMs));
  CHECK_OK(ctx, KivSdThreadResume(ctx, &thread));
  const kiv::test::Stopwatch watch;
  while (!EndsWithin(thread, kShortMs) && watch.ElapsedMs() < kLimitMs) {
    CHECK_OK(ctx, KivSdThreadResume(ctx, &thread));  // the first one came before the suspend
  }
  EXPECT_TRUE(EndsWithin(thread, kLimitMs));
  kiv::test::ExpectOutcome(own, ExitCodeOf(thread), KIV_ST_OK, 0);
  CHECK_OK(ctx, KivSdThreadDelete(ctx, &thread));
}

TEST(ThreadSuspend, AndResumeIgnoreFailures) {
  Context ctx;
  KivHandle bad = BadHandle();
  CHECK_OK(ctx, KivSdThreadSuspend(ctx, &bad));
  CHECK_OK(ctx, KivSdThreadResume(ctx, &bad));
  CHECK_ARGUMENT(ctx, KivSdThreadResume(ctx, nullptr));
}

// ---- Identity, yielding and priorities ----

TEST(Thread, KnowsItsIdentifier) {
  Context ctx;
  uint32_t id = 0;
  CHECK_OK(ctx, KivSdThreadIdGet(ctx, &id));
  EXPECT_EQ(id, OwnThreadId());
  CHECK_ARGUMENT(ctx, KivSdThreadIdGet(ctx, nullptr));
}

TEST(Thread, HasAHandleThatOtherThreadsCanUse) {
  Context ctx;
  KivHandle self = nullptr;
  CHECK_OK(ctx, KivSdThreadHandleGet(ctx, &self));
  const auto rank = [&](int32_t priority) {
    return kiv::test::OnAnotherThread(
        [&] { return KivSdThreadPrioritySet(nullptr, &self, priority); });
  };
  EXPECT_EQ(rank(-1), KIV_ST_OK);
  int32_t priority = 0;
  CHECK_OK(ctx, KivSdThreadPriorityGet(ctx, nullptr, &priority));
  EXPECT_EQ(priority, -1) << "the handle is this thread's";
  EXPECT_EQ(rank(0), KIV_ST_OK);
  CHECK_OK(ctx, KivSdThreadDelete(ctx, &self));
  CHECK_ARGUMENT(ctx, KivSdThreadHandleGet(ctx, nullptr));
}

TEST(Thread, YieldSucceeds) {
  Context ctx;
  CHECK_OK(ctx, KivSdThreadYield(ctx));
}

TEST(ThreadPriority, IsSetAndReadOnTheSystemsScale) {
  Context ctx;
  WaitingThread waiting;
  int32_t priority = 99;
  CHECK_OK(ctx, KivSdThreadPriorityGet(ctx, waiting.handle(), &priority));
  EXPECT_EQ(priority, 0);
  for (const int32_t wanted : {-15, -2, -1, 1, 2, 15, 0}) {
    CHECK_OK(ctx, KivSdThreadPrioritySet(ctx, waiting.handle(), wanted));
    CHECK_OK(ctx, KivSdThreadPriorityGet(ctx, waiting.handle(), &priority));
    EXPECT_EQ(priority, wanted);
  }
}

TEST(ThreadPriority, OfNullIsTheCallingThreads) {
  Context ctx;
  int32_t priority = 99;
  CHECK_OK(ctx, KivSdThreadPrioritySet(ctx, nullptr, -1));
  CHECK_OK(ctx, KivSdThreadPriorityGet(ctx, nullptr, &priority));
  EXPECT_EQ(priority, -1);
  CHECK_OK(ctx, KivSdThreadPrioritySet(ctx, nullptr, 0));
}

TEST(ThreadPriority, FailsOffTheScaleOrOnABadHandle) {
  Context ctx;
  WaitingThread waiting;
  CHECK_OUTCOME(ctx, KivSdThreadPrioritySet(ctx, waiting.handle(), 100), KIV_ST_THREAD_PRIORITY_SET,
                kOsBadArgument);
  KivHandle bad = BadHandle();
  int32_t priority = 99;
  CHECK_OUTCOME(ctx, KivSdThreadPrioritySet(ctx, &bad, 0), KIV_ST_THREAD_PRIORITY_SET,
                kOsBadHandle);
  CHECK_OUTCOME(ctx, KivSdThreadPriorityGet(ctx, &bad, &priority), KIV_ST_THREAD_PRIORITY_GET,
                kOsBadHandle);
  EXPECT_EQ(priority, 99);
  CHECK_ARGUMENT(ctx, KivSdThreadPriorityGet(ctx, waiting.handle(), nullptr));
}

TEST(ThreadPriority, HasAFixedBaseAndHighestForEveryThread) {
  Context ctx;
  WaitingThread waiting;
  CHECK_OK(ctx, KivSdThreadPrioritySet(ctx, waiting.handle(), -1));
  for (const KivHandle ignored : {*waiting.handle(), KivHandle{nullptr}, BadHandle()}) {
    int32_t priority = 99;
    CHECK_OK(ctx, KivSdThreadBasePriorityGet(ctx, ignored, &priority));
    EXPECT_EQ(priority, 0);
    CHECK_OK(ctx, KivSdThreadHighPriorityGet(ctx, ignored, &priority));
    EXPECT_EQ(priority, 2);
  }
  CHECK_ARGUMENT(ctx, KivSdThreadBasePriorityGet(ctx, nullptr, nullptr));
  CHECK_ARGUMENT(ctx, KivSdThreadHighPriorityGet(ctx, nullptr, nullptr));
}

TEST(Thread, WorksWithoutAContext) {
  uint32_t number = 0;
  int32_t priority = 99;
  KivHandle thread = nullptr;
  EXPECT_EQ(KivSdThreadCreate(nullptr, NoteIdentifier, 0, 0, &number, &number, &thread), KIV_ST_OK);
  EXPECT_EQ(KivSdThreadSuspend(nullptr, &thread), KIV_ST_OK);
  EXPECT_EQ(KivSdThreadResume(nullptr, &thread), KIV_ST_OK);
  EXPECT_EQ(KivSdThreadJoin(nullptr, &thread), KIV_ST_OK);
  EXPECT_EQ(KivSdThreadDelete(nullptr, &thread), KIV_ST_OK);
  EXPECT_EQ(KivSdThreadDelete(nullptr, &thread), KIV_ST_THREAD_DELETE);
  EXPECT_EQ(KivSdThreadYield(nullptr), KIV_ST_OK);
  EXPECT_EQ(KivSdThreadIdGet(nullptr, &number), KIV_ST_OK);
  EXPECT_EQ(KivSdThreadPriorityGet(nullptr, nullptr, &priority), KIV_ST_OK);
  EXPECT_EQ(KivSdThreadPrioritySet(nullptr, nullptr, priority), KIV_ST_OK);
  EXPECT_EQ(KivSdThreadBasePriorityGet(nullptr, nullptr, &priority), KIV_ST_OK);
  EXPECT_EQ(KivSdThreadHighPriorityGet(nullptr, nullptr, &priority), KIV_ST_OK);
  EXPECT_EQ(KivSdThreadHandleGet(nullptr, &thread), KIV_ST_OK);
  EXPECT_EQ(KivSdThreadDelete(nullptr, &thread), KIV_ST_OK);
  EXPECT_EQ(KivSdThreadIdGet(nullptr, nullptr), KIV_ST_ARGUMENT);
}

// ---- A process that waits for itself ----

const RegisteredRole selfJoiner("joins-itself", [](const RoleArguments& arguments) {
  const SharedSignal joining(arguments[0]);
  joining.Set();
  KivSdThreadJoin(nullptr, nullptr);
  return kRoleDone;
});

TEST(Thread, JoinOfNullWaitsForTheCallingThreadForever) {
  const SharedSignal joining(UniqueName("joining"));
  const ChildProcess child("joins-itself", {joining.name()});
  joining.Await();
  EXPECT_FALSE(child.EndsWithin(300));
  child.Kill();
  EXPECT_EQ(child.ExitCode(), kiv::test::kKilled);
}

}  // namespace
