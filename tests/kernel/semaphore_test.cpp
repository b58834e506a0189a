// Counting semaphores: counts, time-outs, names, and sharing with a second process.
// kernel_objects_failure_test checks the arguments of the system calls and their failures.
#include <gtest/gtest.h>
#ifdef _WIN32
#include <windows.h>
#endif

#include <string>

#include "kivsdu/kivsdu.h"
#include "support/child_process.h"
#include "support/context.h"
#include "support/os_errors.h"
#include "support/waiting.h"

namespace {

using kiv::test::ChildProcess;
using kiv::test::Context;
using kiv::test::kLimitMs;
using kiv::test::kOsBadArgument;
using kiv::test::kOsBadHandle;
using kiv::test::kOsNameOfOtherKind;
using kiv::test::kOsNameTooLong;
using kiv::test::kOsNotFound;
using kiv::test::kOsTooManyPosts;
using kiv::test::kRoleDone;
using kiv::test::kShortAtLeastMs;
using kiv::test::kShortMs;
using kiv::test::Later;
using kiv::test::RegisteredRole;
using kiv::test::RoleArguments;
using kiv::test::SharedSignal;
using kiv::test::Stopwatch;
using kiv::test::UniqueName;

constexpr int32_t kUnwritten = -77;

KivHandle BadHandle() { return reinterpret_cast<KivHandle>(uintptr_t{0x7FFFFFF0}); }

class CountingSemaphore : public testing::Test {
 protected:
  void TearDown() override {
    if (semaphore_ != nullptr) {
      EXPECT_EQ(KivSdCntSemClose(nullptr, &semaphore_), KIV_ST_OK);
    }
  }

  void Make(int32_t initialCount, int32_t maximumCount) {
    CHECK_OK(ctx_, KivSdCntSemCreate(ctx_, nullptr, initialCount, maximumCount, &semaphore_));
    ASSERT_NE(semaphore_, nullptr);
  }

  void ExpectEmpty() {
    CHECK_OUTCOME(ctx_, KivSdCntSemRequest(ctx_, &semaphore_, 0), KIV_ST_SEM_TIMEOUT, 258u);
  }

  Context ctx_;
  KivHandle semaphore_ = nullptr;
};

TEST_F(CountingSemaphore, RefusesNullPointers) {
  CHECK_ARGUMENT(ctx_, KivSdCntSemCreate(ctx_, nullptr, 0, 1, nullptr));
  CHECK_ARGUMENT(ctx_, KivSdCntSemOpen(ctx_, "name", nullptr));
  CHECK_ARGUMENT(ctx_, KivSdCntSemClose(ctx_, nullptr));
  CHECK_ARGUMENT(ctx_, KivSdCntSemRequest(ctx_, nullptr, 0));
  CHECK_ARGUMENT(ctx_, KivSdCntSemClear(ctx_, nullptr, 1, nullptr));
  KivHandle opened = BadHandle();
  CHECK_ARGUMENT(ctx_, KivSdCntSemOpen(ctx_, nullptr, &opened));
}

TEST_F(CountingSemaphore, WorksWithoutAContext) {
  const std::string name = UniqueName("no-context");
  KivHandle made = nullptr;
  KivHandle opened = nullptr;
  EXPECT_EQ(KivSdCntSemCreate(nullptr, name.c_str(), 0, 1, &made), KIV_ST_OK);
  EXPECT_EQ(KivSdCntSemOpen(nullptr, name.c_str(), &opened), KIV_ST_OK);
  EXPECT_EQ(KivSdCntSemClear(nullptr, &made, 1, nullptr), KIV_ST_OK);
  EXPECT_EQ(KivSdCntSemClear(nullptr, &made, 1, nullptr), KIV_ST_SEM_OVERFLOW);
  EXPECT_EQ(KivSdCntSemRequest(nullptr, &opened, 0), KIV_ST_OK);
  EXPECT_EQ(KivSdCntSemRequest(nullptr, &opened, 0), KIV_ST_SEM_TIMEOUT);
  EXPECT_EQ(KivSdCntSemClose(nullptr, &opened), KIV_ST_OK);
  EXPECT_EQ(KivSdCntSemClose(nullptr, &made), KIV_ST_OK);
  EXPECT_EQ(KivSdCntSemClose(nullptr, &made), KIV_ST_SEM_CLOSE);
  EXPECT_EQ(KivSdCntSemRequest(nullptr, nullptr, 0), KIV_ST_ARGUMENT);
}

TEST_F(CountingSemaphore, GrantsItsInitialCountAndThenTimesOut) {
  Make(2, 3);
  CHECK_OK(ctx_, KivSdCntSemRequest(ctx_, &semaphore_, 0));
  CHECK_OK(ctx_, KivSdCntSemRequest(ctx_, &semaphore_, 0));
  ExpectEmpty();
}

TEST_F(CountingSemaphore, IsNotCreatedWithInvalidCounts) {
  const int32_t counts[][2] = {{3, 2}, {0, 0}, {-1, 2}, {0, -1}};
  for (const auto& [initialCount, maximumCount] : counts) {
    KivHandle made = BadHandle();
    CHECK_OUTCOME(ctx_, KivSdCntSemCreate(ctx_, nullptr, initialCount, maximumCount, &made),
                  KIV_ST_SEM_CREATE, kOsBadArgument);
    EXPECT_EQ(made, nullptr) << initialCount << " of " << maximumCount;
  }
}

TEST_F(CountingSemaphore, ReturnsTheCountBeforeARelease) {
  Make(1, 10);
  int32_t previous = kUnwritten;
  CHECK_OK(ctx_, KivSdCntSemClear(ctx_, &semaphore_, 4, &previous));
  EXPECT_EQ(previous, 1);
  CHECK_OK(ctx_, KivSdCntSemClear(ctx_, &semaphore_, 5, &previous));
  EXPECT_EQ(previous, 5);
}

TEST_F(CountingSemaphore, IsReleasedUpToItsMaximumOnly) {
  Make(0, 3);
  int32_t previous = kUnwritten;
  CHECK_OUTCOME(ctx_, KivSdCntSemClear(ctx_, &semaphore_, 4, &previous), KIV_ST_SEM_OVERFLOW,
                kOsTooManyPosts);
  EXPECT_EQ(previous, kUnwritten);
  ExpectEmpty();  // a release that overflows adds nothing
  CHECK_OK(ctx_, KivSdCntSemClear(ctx_, &semaphore_, 3, &previous));
  EXPECT_EQ(previous, 0);
  CHECK_OUTCOME(ctx_, KivSdCntSemClear(ctx_, &semaphore_, 1, nullptr), KIV_ST_SEM_OVERFLOW,
                kOsTooManyPosts);
  for (int i = 0; i < 3; ++i) CHECK_OK(ctx_, KivSdCntSemRequest(ctx_, &semaphore_, 0));
  ExpectEmpty();
}

TEST_F(CountingSemaphore, HoldsTheLargestCount) {
  Make(INT32_MAX - 1, INT32_MAX);
  int32_t previous = kUnwritten;
  CHECK_OK(ctx_, KivSdCntSemClear(ctx_, &semaphore_, 1, &previous));
  EXPECT_EQ(previous, INT32_MAX - 1);
  CHECK_OUTCOME(ctx_, KivSdCntSemClear(ctx_, &semaphore_, 1, nullptr), KIV_ST_SEM_OVERFLOW,
                kOsTooManyPosts);
}

TEST_F(CountingSemaphore, RefusesAReleaseOfZeroOrLess) {
#ifdef _WIN32
  if (GetProcAddress(GetModuleHandleA("ntdll.dll"), "wine_get_version") != nullptr) {
    GTEST_SKIP() << "Windows documents that a release of 0 or less fails with error 87; "
                    "Wine accepts 0 and treats -1 as a large count";
  }
#endif
  Make(0, 3);
  CHECK_OUTCOME(ctx_, KivSdCntSemClear(ctx_, &semaphore_, 0, nullptr), KIV_ST_SEM_CLEAR,
                kOsBadArgument);
  CHECK_OUTCOME(ctx_, KivSdCntSemClear(ctx_, &semaphore_, -1, nullptr), KIV_ST_SEM_CLEAR,
                kOsBadArgument);
}

TEST_F(CountingSemaphore, BadHandlesFailWithTheSystemsError) {
  KivHandle bad = BadHandle();
  CHECK_OUTCOME(ctx_, KivSdCntSemRequest(ctx_, &bad, 0), KIV_ST_SEM_REQUEST, kOsBadHandle);
  CHECK_OUTCOME(ctx_, KivSdCntSemClear(ctx_, &bad, 1, nullptr), KIV_ST_SEM_CLEAR, kOsBadHandle);
  CHECK_OUTCOME(ctx_, KivSdCntSemClose(ctx_, &bad), KIV_ST_SEM_CLOSE, kOsBadHandle);
  EXPECT_EQ(bad, BadHandle());
}

TEST_F(CountingSemaphore, CloseLeavesTheVariableUnchanged) {
  Make(0, 1);
  const KivHandle before = semaphore_;
  CHECK_OK(ctx_, KivSdCntSemClose(ctx_, &semaphore_));
  EXPECT_EQ(semaphore_, before);
  CHECK_OUTCOME(ctx_, KivSdCntSemRequest(ctx_, &semaphore_, 0), KIV_ST_SEM_REQUEST, kOsBadHandle);
  semaphore_ = nullptr;
}

// ---- Waiting ----

TEST_F(CountingSemaphore, WaitsUntilTheTimeOut) {
  Make(0, 1);
  const Stopwatch watch;
  CHECK_OUTCOME(ctx_, KivSdCntSemRequest(ctx_, &semaphore_, kShortMs), KIV_ST_SEM_TIMEOUT, 258u);
  EXPECT_GE(watch.ElapsedMs(), kShortAtLeastMs);
  EXPECT_LT(watch.ElapsedMs(), kLimitMs);
}

TEST_F(CountingSemaphore, UsesOnlyTheLowHalfOfTheTimeOut) {
  Make(0, 1);
  CHECK_OUTCOME(ctx_, KivSdCntSemRequest(ctx_, &semaphore_, 0x7FFFFFFF'00000000),
                KIV_ST_SEM_TIMEOUT, 258u);
  CHECK_OUTCOME(ctx_, KivSdCntSemRequest(ctx_, &semaphore_, 0xFFFFFFFF'00000000 | kShortMs),
                KIV_ST_SEM_TIMEOUT, 258u);
}

TEST_F(CountingSemaphore, WaitsForeverOnAnyNegativeTimeOut) {
  constexpr uint64_t kForEver[] = {0xFFFFFFFF,          0xFFFFFFFE,          0x80000000,
                                   0xFFFFFFFF'FFFFFFFE, 0x00000001'FFFFFFFF, 0x12345678'80000001};
  Make(0, 1);
  for (const uint64_t timeoutMs : kForEver) {
    const Later release([&] { KivSdCntSemClear(nullptr, &semaphore_, 1, nullptr); });
    CHECK_OK(ctx_, KivSdCntSemRequest(ctx_, &semaphore_, timeoutMs));
  }
}

TEST_F(CountingSemaphore, WakesAWaiterWithATimeOutWhenItIsReleased) {
  Make(0, 1);
  const Later release([&] { KivSdCntSemClear(nullptr, &semaphore_, 1, nullptr); });
  CHECK_OK(ctx_, KivSdCntSemRequest(ctx_, &semaphore_, kLimitMs));
}

// ---- Names ----

TEST_F(CountingSemaphore, OpensAnExistingObjectByName) {
  const std::string name = UniqueName("named");
  CHECK_OK(ctx_, KivSdCntSemCreate(ctx_, name.c_str(), 0, 2, &semaphore_));
  KivHandle opened = nullptr;
  CHECK_OK(ctx_, KivSdCntSemOpen(ctx_, name.c_str(), &opened));
  ASSERT_NE(opened, nullptr);
  EXPECT_NE(opened, semaphore_);
  CHECK_OK(ctx_, KivSdCntSemClear(ctx_, &opened, 1, nullptr));
  CHECK_OK(ctx_, KivSdCntSemRequest(ctx_, &semaphore_, 0));
  CHECK_OK(ctx_, KivSdCntSemClose(ctx_, &opened));
}

TEST_F(CountingSemaphore, RefusesNamesThatAreTooLong) {
  const std::string longest = (UniqueName("long") + std::string(259, 'n')).substr(0, 259);
  CHECK_OK(ctx_, KivSdCntSemCreate(ctx_, longest.c_str(), 0, 1, &semaphore_));
  KivHandle made = BadHandle();
  CHECK_OUTCOME(ctx_, KivSdCntSemCreate(ctx_, (longest + "n").c_str(), 0, 1, &made),
                KIV_ST_SEM_CREATE, kOsNameTooLong);
  EXPECT_EQ(made, nullptr);
  CHECK_OUTCOME(ctx_, KivSdCntSemOpen(ctx_, (longest + "n").c_str(), &made), KIV_ST_SEM_OPEN,
                kOsNameTooLong);
}

TEST_F(CountingSemaphore, CreateOpensAnExistingObjectWithoutAnError) {
  const std::string name = UniqueName("twice");
  CHECK_OK(ctx_, KivSdCntSemCreate(ctx_, name.c_str(), 1, 2, &semaphore_));
  KivHandle second = nullptr;
  CHECK_OK(ctx_, KivSdCntSemCreate(ctx_, name.c_str(), 5, 9, &second));
  CHECK_OK(ctx_, KivSdCntSemRequest(ctx_, &second, 0));
  CHECK_OUTCOME(ctx_, KivSdCntSemRequest(ctx_, &second, 0), KIV_ST_SEM_TIMEOUT, 258u);
  CHECK_OUTCOME(ctx_, KivSdCntSemClear(ctx_, &second, 3, nullptr), KIV_ST_SEM_OVERFLOW,
                kOsTooManyPosts);
  CHECK_OK(ctx_, KivSdCntSemClose(ctx_, &second));
}

TEST_F(CountingSemaphore, UnusedNamesAreNotOpened) {
  const std::string name = UniqueName("gone");
  KivHandle opened = BadHandle();
  CHECK_OUTCOME(ctx_, KivSdCntSemOpen(ctx_, name.c_str(), &opened), KIV_ST_SEM_OPEN, kOsNotFound);
  EXPECT_EQ(opened, nullptr);
  KivHandle made = nullptr;
  CHECK_OK(ctx_, KivSdCntSemCreate(ctx_, name.c_str(), 0, 1, &made));
  CHECK_OK(ctx_, KivSdCntSemClose(ctx_, &made));
  // The last close removes the name.
  CHECK_OUTCOME(ctx_, KivSdCntSemOpen(ctx_, name.c_str(), &opened), KIV_ST_SEM_OPEN, kOsNotFound);
}

TEST_F(CountingSemaphore, NamesOfOtherKindsOfObjectAreRefused) {
  const std::string name = UniqueName("a-mutex");
  KivHandle mutex = nullptr;
  CHECK_OK(ctx_, KivSdMutexCreate(ctx_, name.c_str(), &mutex));
  KivHandle made = BadHandle();
  CHECK_OUTCOME(ctx_, KivSdCntSemCreate(ctx_, name.c_str(), 0, 1, &made), KIV_ST_SEM_CREATE,
                kOsNameOfOtherKind);
  EXPECT_EQ(made, nullptr);
  made = BadHandle();
  CHECK_OUTCOME(ctx_, KivSdCntSemOpen(ctx_, name.c_str(), &made), KIV_ST_SEM_OPEN,
                kOsNameOfOtherKind);
  EXPECT_EQ(made, nullptr);
  CHECK_OK(ctx_, KivSdMutexClose(ctx_, &mutex));
}

// ---- A second process ----

// Waits for one unit of the named semaphore, takes it and releases two.
const RegisteredRole swapper("takes-one-gives-two", [](const RoleArguments& arguments) {
  Context ctx;
  KivHandle semaphore = nullptr;
  CHECK_OK(ctx, KivSdCntSemOpen(ctx, arguments[0].c_str(), &semaphore));
  const SharedSignal opened(arguments[1]);
  const SharedSignal given(arguments[2]);
  opened.Set();
  CHECK_OK(ctx, KivSdCntSemRequest(ctx, &semaphore, kLimitMs));
  CHECK_OK(ctx, KivSdCntSemClear(ctx, &semaphore, 2, nullptr));
  given.Set();
  CHECK_OK(ctx, KivSdCntSemClose(ctx, &semaphore));
  return kRoleDone;
});

TEST_F(CountingSemaphore, IsSharedByTwoProcesses) {
  const std::string name = UniqueName("two-processes");
  const SharedSignal opened(UniqueName("opened"));
  const SharedSignal given(UniqueName("given"));
  CHECK_OK(ctx_, KivSdCntSemCreate(ctx_, name.c_str(), 0, 2, &semaphore_));
  const ChildProcess child("takes-one-gives-two", {name, opened.name(), given.name()});
  opened.Await();
  CHECK_OK(ctx_, KivSdCntSemClear(ctx_, &semaphore_, 1, nullptr));
  given.Await();
  CHECK_OK(ctx_, KivSdCntSemRequest(ctx_, &semaphore_, 0));
  CHECK_OK(ctx_, KivSdCntSemRequest(ctx_, &semaphore_, 0));
  ExpectEmpty();
  EXPECT_EQ(child.ExitCode(), kRoleDone);
}

// Natively a process that runs another program passes no handles to it.
#ifdef _WIN32
// Releases one unit through a handle that the parent process opened.
const RegisteredRole heir("gives-to-an-inherited-handle", [](const RoleArguments& arguments) {
  Context ctx;
  auto inherited = reinterpret_cast<KivHandle>(std::stoull(arguments[0]));
  CHECK_OK(ctx, KivSdCntSemClear(ctx, &inherited, 1, nullptr));
  return kRoleDone;
});

TEST_F(CountingSemaphore, IsUsableThroughAnInheritedHandle) {
  const std::string name = UniqueName("inherited");
  CHECK_OK(ctx_, KivSdCntSemCreate(ctx_, name.c_str(), 0, 1, &semaphore_));
  KivHandle opened = nullptr;
  CHECK_OK(ctx_, KivSdCntSemOpen(ctx_, name.c_str(), &opened));
  DWORD flags = 0;
  EXPECT_TRUE(GetHandleInformation(opened, &flags));
  EXPECT_TRUE(flags & HANDLE_FLAG_INHERIT) << "children inherit what was opened";
  EXPECT_TRUE(GetHandleInformation(semaphore_, &flags));
  EXPECT_FALSE(flags & HANDLE_FLAG_INHERIT) << "and not what was created";
  const ChildProcess child("gives-to-an-inherited-handle",
                           {std::to_string(reinterpret_cast<uintptr_t>(opened))});
  EXPECT_EQ(child.ExitCode(), kRoleDone);
  CHECK_OK(ctx_, KivSdCntSemRequest(ctx_, &semaphore_, 0));
  CHECK_OK(ctx_, KivSdCntSemClose(ctx_, &opened));
}
#endif

}  // namespace
