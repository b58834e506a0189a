// Processes: identifier, liveness, ending and priority classes, tested with real child processes.
#include <gtest/gtest.h>

#ifdef _WIN32
#include <windows.h>
#else
#include <unistd.h>
#endif

#include <bit>
#include <string>

#include "kivsdu/kivsdu.h"
#include "support/child_process.h"
#include "support/context.h"
#include "support/os_errors.h"
#include "support/own_process.h"
#include "support/system_info.h"
#include "support/waiting.h"

namespace {

using kiv::test::ChildProcess;
using kiv::test::Context;
using kiv::test::kKilled;
using kiv::test::kOsAccessDenied;
using kiv::test::kOsBadArgument;
using kiv::test::kOsBadHandle;
using kiv::test::kOsNoSuchProcess;
using kiv::test::kRoleDone;
using kiv::test::OwnProcessId;
using kiv::test::PriorityClassOf;
using kiv::test::RegisteredRole;
using kiv::test::RoleArguments;
using kiv::test::SharedSignal;
using kiv::test::UniqueName;

constexpr uint32_t kWaitFailed = 0xFFFFFFFF;
constexpr int32_t kCallingProcess = -1;

// Priority classes.
constexpr uint32_t kNormal = 0x20;
constexpr uint32_t kIdle = 0x40;
constexpr uint32_t kBelowNormal = 0x4000;

#ifdef _WIN32
constexpr uint32_t kDeleted = 0;
constexpr uint32_t kWaitForNoProcess = kWaitFailed;
#else
constexpr uint32_t kDeleted = kKilled;     // a signal ends the process: there is no exit code
constexpr uint32_t kWaitForNoProcess = 0;  // the handle is an identifier, which no process has now
#endif

KivHandle OwnHandle() { return reinterpret_cast<KivHandle>(intptr_t{-1}); }

KivHandle BadHandle() { return reinterpret_cast<KivHandle>(uintptr_t{0x7FFFFFF0}); }

// A priority class as an exit code, which has 8 bits on Linux.
uint32_t CodeOf(uint32_t priorityClass) {
  return static_cast<uint32_t>(std::countr_zero(priorityClass));
}

// Runs until the test signals it, and returns its priority class as the library reports it.
const RegisteredRole runner("runs", [](const RoleArguments& arguments) {
  const SharedSignal runs(arguments[0]);
  const SharedSignal mayEnd(arguments[1]);
  runs.Set();
  mayEnd.Await();
  Context ctx;
  uint32_t priorityClass = 0;
  CHECK_OK(ctx, KivSdProcessPriorityGet(ctx, &priorityClass));
  return CodeOf(priorityClass);
});

class Process : public testing::Test {
 protected:
  void SetUp() override { runs_.Await(); }

  void LetEnd() { mayEnd_.Set(); }
  KivHandle handle() const { return child_.handle(); }
  int32_t id() const { return static_cast<int32_t>(child_.id()); }

  Context ctx_;
  SharedSignal runs_{UniqueName("runs")};
  SharedSignal mayEnd_{UniqueName("may-end")};
  ChildProcess child_{"runs", {runs_.name(), mayEnd_.name()}};
};

// ---- Identity ----

TEST(OwnProcess, KnowsItsIdentifier) {
  Context ctx;
  uint32_t id = 0;
  CHECK_OK(ctx, KivSdProcessIdGet(ctx, &id));
  EXPECT_EQ(id, OwnProcessId());
  CHECK_ARGUMENT(ctx, KivSdProcessIdGet(ctx, nullptr));
}

TEST(OwnProcess, ReturnsItsPseudoHandleAsSessionIdentifier) {
  Context ctx;
  uint64_t session = 0;
  CHECK_OK(ctx, KivSdProcessSessionIdGet(ctx, &session));
  EXPECT_EQ(session, UINT64_MAX);
  CHECK_ARGUMENT(ctx, KivSdProcessSessionIdGet(ctx, nullptr));
}

TEST(OwnProcess, IsAlive) {
  Context ctx;
  CHECK_OK(ctx, KivSdProcessCheckAlive(ctx, OwnHandle()));
}

// ---- Liveness and ending ----

TEST_F(Process, IsAliveUntilItHasEnded) {
  CHECK_OK(ctx_, KivSdProcessCheckAlive(ctx_, handle()));
  LetEnd();
  EXPECT_EQ(child_.ExitCode(), CodeOf(kNormal));
  CHECK_OUTCOME(ctx_, KivSdProcessCheckAlive(ctx_, handle()), KIV_ST_PROCESS_ALIVE, 0u);
  CHECK_OUTCOME(ctx_, KivSdProcessCheckAlive(ctx_, handle()), KIV_ST_PROCESS_ALIVE, 0u);
}

TEST_F(Process, IsNotAliveOnceItWasKilled) {
  child_.Kill();
  EXPECT_EQ(child_.ExitCode(), kKilled);
  CHECK_OUTCOME(ctx_, KivSdProcessCheckAlive(ctx_, handle()), KIV_ST_PROCESS_ALIVE, 0u);
}

TEST(BadProcessHandle, ReportsAFailedWait) {
  Context ctx;
  CHECK_OUTCOME(ctx, KivSdProcessCheckAlive(ctx, BadHandle()), KIV_ST_PROCESS_ALIVE,
                kWaitForNoProcess);
  CHECK_OUTCOME(ctx, KivSdProcessCheckAlive(ctx, nullptr), KIV_ST_PROCESS_ALIVE, kWaitFailed);
}

TEST_F(Process, DeleteEndsItWithExitCodeZero) {
  CHECK_OK(ctx_, KivSdProcessDelete(ctx_, handle()));
  EXPECT_EQ(child_.ExitCode(), kDeleted);
  CHECK_OUTCOME(ctx_, KivSdProcessCheckAlive(ctx_, handle()), KIV_ST_PROCESS_ALIVE, 0u);
}

TEST_F(Process, DeleteOfAnEndedProcessSucceedsUnlessAccessIsDenied) {
  LetEnd();
  const uint32_t exitCode = child_.ExitCode();
  uint32_t error = 0;
#ifdef _WIN32
  // Windows documents error 5 for an ended process; Wine reports no error. The status follows the
  // error in both cases.
  SetLastError(0);
  error = TerminateProcess(handle(), 0) ? 0 : GetLastError();
#endif
  const uint32_t status = error == kOsAccessDenied ? KIV_ST_PROCESS_DELETE : KIV_ST_OK;
  CHECK_OUTCOME(ctx_, KivSdProcessDelete(ctx_, handle()), status, error);
  EXPECT_EQ(child_.ExitCode(), exitCode);
}

#ifdef _WIN32

TEST_F(Process, DeleteWithoutTheAccessRightIsDenied) {
  HANDLE watcher = OpenProcess(SYNCHRONIZE, FALSE, child_.id());
  ASSERT_NE(watcher, nullptr);
  CHECK_OUTCOME(ctx_, KivSdProcessDelete(ctx_, watcher), KIV_ST_PROCESS_DELETE, kOsAccessDenied);
  CHECK_OK(ctx_, KivSdProcessCheckAlive(ctx_, watcher));
  LetEnd();
  EXPECT_EQ(child_.ExitCode(), CodeOf(kNormal));
  CloseHandle(watcher);
}

#else

// A handle has no rights of its own here: the user's rights decide.
const RegisteredRole stranger("tries-to-end", [](const RoleArguments& arguments) {
  constexpr uid_t kNobody = 65534;
  if (setuid(kNobody) != 0) return kRoleDone + 1;
  const auto process = reinterpret_cast<KivHandle>(std::stol(arguments[0]));
  Context ctx;
  CHECK_OUTCOME(ctx, KivSdProcessDelete(ctx, process), KIV_ST_PROCESS_DELETE, kOsAccessDenied);
  CHECK_OK(ctx, KivSdProcessCheckAlive(ctx, process));
  CHECK_OUTCOME(ctx, KivSdProcessPrioritySet(ctx, process, 1, kIdle), KIV_ST_PROCESS_PRIORITY_SET,
                kOsAccessDenied);
  return kRoleDone;
});

TEST_F(Process, DeleteWithoutTheAccessRightIsDenied) {
  if (geteuid() != 0) GTEST_SKIP() << "only root can become another user";
  EXPECT_EQ(ChildProcess("tries-to-end", {std::to_string(child_.id())}).ExitCode(), kRoleDone);
  LetEnd();
  EXPECT_EQ(child_.ExitCode(), CodeOf(kNormal));
}

// These numbers would mean groups of processes, all processes, or the ancestor of all.
TEST(BadProcessHandle, NeverMeansSeveralProcessesOrTheFirst) {
  Context ctx;
  for (const intptr_t number : {intptr_t{0}, intptr_t{1}, intptr_t{-2}, intptr_t{INT32_MIN},
                                intptr_t{INT32_MAX} + 1, intptr_t{1} << 32}) {
    const auto process = reinterpret_cast<KivHandle>(number);
    CHECK_OUTCOME(ctx, KivSdProcessDelete(ctx, process), KIV_ST_OK, kOsBadHandle);
    CHECK_OUTCOME(ctx, KivSdProcessCheckAlive(ctx, process), KIV_ST_PROCESS_ALIVE, kWaitFailed);
    if (process == nullptr) continue;  // the calling process
    CHECK_OUTCOME(ctx, KivSdProcessPrioritySet(ctx, process, 5, kNormal),
                  KIV_ST_PROCESS_PRIORITY_SET, kOsBadHandle);
  }
}

const RegisteredRole selfEnder("ends-itself", [](const RoleArguments&) {
  const auto own = reinterpret_cast<KivHandle>(intptr_t{getpid()});
  KivSdProcessDelete(nullptr, own);
  return kRoleDone;
});

TEST(OwnProcess, EndsItselfWithExitCodeZero) {
  EXPECT_EQ(ChildProcess("ends-itself").ExitCode(), 0u);
}

// The numbers of the interface travel, whatever the process's rights are.
const RegisteredRole withoutRights("ranks-itself-without-rights", [](const RoleArguments&) {
  if (geteuid() == 0 && setuid(65534) != 0) return kRoleDone + 1;
  Context ctx;
  uint32_t priorityClass = 0;
  int32_t priority = 0;
  for (const uint32_t wanted : {kIdle, 0x80u, kNormal, 0x100u, kBelowNormal, 0x8000u}) {
    CHECK_OK(ctx, KivSdProcessPrioritySet(ctx, nullptr, -1, wanted));
    CHECK_OK(ctx, KivSdProcessPriorityGet(ctx, &priorityClass));
    EXPECT_EQ(priorityClass, wanted);
  }
  for (const int32_t wanted : {-15, 15, 2, 0}) {
    CHECK_OK(ctx, KivSdThreadPrioritySet(ctx, nullptr, wanted));
    CHECK_OK(ctx, KivSdThreadPriorityGet(ctx, nullptr, &priority));
    EXPECT_EQ(priority, wanted);
  }
  return kRoleDone;
});

TEST(OwnProcess, KeepsTheNumbersOfItsPrioritiesWithoutRights) {
  EXPECT_EQ(ChildProcess("ranks-itself-without-rights").ExitCode(), kRoleDone);
}

#endif

TEST(BadProcessHandle, IsDeletedSuccessfullyWithTheErrorRecorded) {
  Context ctx;
  CHECK_OUTCOME(ctx, KivSdProcessDelete(ctx, BadHandle()), KIV_ST_OK, kOsNoSuchProcess);
  CHECK_OUTCOME(ctx, KivSdProcessDelete(ctx, nullptr), KIV_ST_OK, kOsBadHandle);
}

// ---- Priority classes ----

TEST_F(Process, PriorityClassIsSetByHandle) {
  CHECK_OK(ctx_, KivSdProcessPrioritySet(ctx_, handle(), id(), kBelowNormal));
  EXPECT_EQ(PriorityClassOf(handle()), kBelowNormal);
  EXPECT_EQ(PriorityClassOf(OwnHandle()), kNormal);
  LetEnd();
  EXPECT_EQ(child_.ExitCode(), CodeOf(kBelowNormal)) << "read by the child";
}

TEST_F(Process, PriorityClassIsSetByTheHandleAndNotTheIdentifier) {
  const auto own = static_cast<int32_t>(OwnProcessId());
  for (const int32_t otherId : {own, 0, 1, -2}) {
    CHECK_OK(ctx_, KivSdProcessPrioritySet(ctx_, handle(), otherId, kIdle));
    EXPECT_EQ(PriorityClassOf(handle()), kIdle) << otherId;
    EXPECT_EQ(PriorityClassOf(OwnHandle()), kNormal);
    CHECK_OK(ctx_, KivSdProcessPrioritySet(ctx_, handle(), id(), kNormal));
  }
}

TEST_F(Process, IdentifierMinusOneOrANullHandleMeansTheCallingProcess) {
  const struct {
    KivHandle process;
    int32_t id;
  } ways[] = {{handle(), kCallingProcess}, {nullptr, id()}, {nullptr, kCallingProcess}};
  for (const auto& [process, processId] : ways) {
    CHECK_OK(ctx_, KivSdProcessPrioritySet(ctx_, process, processId, kBelowNormal));
    uint32_t priorityClass = 0;
    CHECK_OK(ctx_, KivSdProcessPriorityGet(ctx_, &priorityClass));
    EXPECT_EQ(priorityClass, kBelowNormal);
    EXPECT_EQ(PriorityClassOf(handle()), kNormal);
    CHECK_OK(ctx_, KivSdProcessPrioritySet(ctx_, nullptr, 0, kNormal));
  }
}

TEST_F(Process, AnInvalidPriorityClassIsRefused) {
  CHECK_OUTCOME(ctx_, KivSdProcessPrioritySet(ctx_, handle(), id(), 0x1234),
                KIV_ST_PROCESS_PRIORITY_SET, kOsBadArgument);
  EXPECT_EQ(PriorityClassOf(handle()), kNormal);
}

TEST(BadProcessHandle, FailsToSetAPriorityClass) {
  Context ctx;
  CHECK_OUTCOME(ctx, KivSdProcessPrioritySet(ctx, BadHandle(), 1, kNormal),
                KIV_ST_PROCESS_PRIORITY_SET, kOsNoSuchProcess);
}

TEST(OwnProcess, PriorityClassRefusesANullResult) {
  Context ctx;
  CHECK_ARGUMENT(ctx, KivSdProcessPriorityGet(ctx, nullptr));
}

TEST_F(Process, WorksWithoutAContext) {
  uint32_t number = 0;
  uint64_t session = 0;
  EXPECT_EQ(KivSdProcessIdGet(nullptr, &number), KIV_ST_OK);
  EXPECT_EQ(KivSdProcessSessionIdGet(nullptr, &session), KIV_ST_OK);
  EXPECT_EQ(KivSdProcessPriorityGet(nullptr, &number), KIV_ST_OK);
  EXPECT_EQ(KivSdProcessPriorityGet(nullptr, nullptr), KIV_ST_ARGUMENT);
  EXPECT_EQ(KivSdProcessPrioritySet(nullptr, handle(), id(), kNormal), KIV_ST_OK);
  EXPECT_EQ(KivSdProcessCheckAlive(nullptr, handle()), KIV_ST_OK);
  EXPECT_EQ(KivSdProcessDelete(nullptr, handle()), KIV_ST_OK);
  EXPECT_EQ(child_.ExitCode(), kDeleted);
  EXPECT_EQ(KivSdProcessCheckAlive(nullptr, handle()), KIV_ST_PROCESS_ALIVE);
}

}  // namespace
