// Kernel mutexes: ownership, time-outs, names, and holders that end without a release.
// kernel_objects_failure_test checks the arguments of the system calls and their failures.
#include <gtest/gtest.h>
#ifdef _WIN32
#include <windows.h>
#endif

#include <atomic>
#include <string>

#include "kivsdu/kivsdu.h"
#include "support/child_process.h"
#include "support/context.h"
#include "support/os_errors.h"
#include "support/waiting.h"

namespace {

using kiv::test::ChildProcess;
using kiv::test::Context;
using kiv::test::kKilled;
using kiv::test::kLimitMs;
using kiv::test::kOsBadHandle;
using kiv::test::kOsNameOfOtherKind;
using kiv::test::kOsNotFound;
using kiv::test::kOsNotOwner;
using kiv::test::kRoleDone;
using kiv::test::kShortAtLeastMs;
using kiv::test::kShortMs;
using kiv::test::Later;
using kiv::test::OnAnotherThread;
using kiv::test::RegisteredRole;
using kiv::test::RoleArguments;
using kiv::test::SharedSignal;
using kiv::test::Stopwatch;
using kiv::test::UniqueName;

constexpr uint32_t kForEverMs = 0xFFFFFFFF;

KivHandle BadHandle() { return reinterpret_cast<KivHandle>(uintptr_t{0x7FFFFFF0}); }

class Mutex : public testing::Test {
 protected:
  void TearDown() override {
    if (mutex_ != nullptr) {
      EXPECT_EQ(KivSdMutexClose(nullptr, &mutex_), KIV_ST_OK);
    }
  }

  void Make(const char* name = nullptr) {
    CHECK_OK(ctx_, KivSdMutexCreate(ctx_, name, &mutex_));
    ASSERT_NE(mutex_, nullptr);
  }

  // Whether another thread can take the mutex; that thread releases it again.
  bool IsFree() {
    return OnAnotherThread([&] {
      const uint32_t status = KivSdMutexRequest(nullptr, &mutex_, 0);
      if (status == KIV_ST_OK) KivSdMutexClear(nullptr, &mutex_);
      return status == KIV_ST_OK;
    });
  }

  Context ctx_;
  KivHandle mutex_ = nullptr;
};

TEST_F(Mutex, RefusesNullPointers) {
  CHECK_ARGUMENT(ctx_, KivSdMutexCreate(ctx_, nullptr, nullptr));
  CHECK_ARGUMENT(ctx_, KivSdMutexOpen(ctx_, "name", nullptr));
  CHECK_ARGUMENT(ctx_, KivSdMutexClose(ctx_, nullptr));
  CHECK_ARGUMENT(ctx_, KivSdMutexRequest(ctx_, nullptr, 0));
  CHECK_ARGUMENT(ctx_, KivSdMutexClear(ctx_, nullptr));
  KivHandle opened = BadHandle();
  CHECK_ARGUMENT(ctx_, KivSdMutexOpen(ctx_, nullptr, &opened));
}

TEST_F(Mutex, WorksWithoutAContext) {
  const std::string name = UniqueName("no-context");
  KivHandle opened = nullptr;
  EXPECT_EQ(KivSdMutexCreate(nullptr, name.c_str(), &mutex_), KIV_ST_OK);
  EXPECT_EQ(KivSdMutexOpen(nullptr, name.c_str(), &opened), KIV_ST_OK);
  EXPECT_EQ(KivSdMutexRequest(nullptr, &opened, 0), KIV_ST_OK);
  EXPECT_EQ(KivSdMutexClear(nullptr, &mutex_), KIV_ST_OK);
  EXPECT_EQ(KivSdMutexClear(nullptr, &mutex_), KIV_ST_MUTEX_CLEAR);
  EXPECT_EQ(KivSdMutexClose(nullptr, &opened), KIV_ST_OK);
  EXPECT_EQ(KivSdMutexClose(nullptr, &opened), KIV_ST_MUTEX_CLOSE);
  EXPECT_EQ(KivSdMutexClose(nullptr, nullptr), KIV_ST_ARGUMENT);
}

TEST_F(Mutex, IsFreeWhenCreated) {
  Make();
  EXPECT_TRUE(IsFree());
}

TEST_F(Mutex, ExcludesOtherThreadsUntilReleasedAsOftenAsRequested) {
  Make();
  CHECK_OK(ctx_, KivSdMutexRequest(ctx_, &mutex_, 0));
  CHECK_OK(ctx_, KivSdMutexRequest(ctx_, &mutex_, kForEverMs));
  EXPECT_FALSE(IsFree());
  CHECK_OK(ctx_, KivSdMutexClear(ctx_, &mutex_));
  EXPECT_FALSE(IsFree());
  CHECK_OK(ctx_, KivSdMutexClear(ctx_, &mutex_));
  EXPECT_TRUE(IsFree());
  CHECK_OUTCOME(ctx_, KivSdMutexClear(ctx_, &mutex_), KIV_ST_MUTEX_CLEAR, kOsNotOwner);
}

TEST_F(Mutex, CannotBeReleasedByAThreadThatDoesNotHoldIt) {
  Make();
  CHECK_OK(ctx_, KivSdMutexRequest(ctx_, &mutex_, 0));
  Context other;
  const uint32_t status = OnAnotherThread([&] { return KivSdMutexClear(other, &mutex_); });
  kiv::test::ExpectOutcome(other, status, KIV_ST_MUTEX_CLEAR, kOsNotOwner);
  EXPECT_FALSE(IsFree());
  CHECK_OK(ctx_, KivSdMutexClear(ctx_, &mutex_));
}

TEST_F(Mutex, BadHandlesFailWithTheSystemsError) {
  KivHandle bad = BadHandle();
  CHECK_OUTCOME(ctx_, KivSdMutexRequest(ctx_, &bad, 0), KIV_ST_MUTEX_REQUEST, kOsBadHandle);
  CHECK_OUTCOME(ctx_, KivSdMutexClear(ctx_, &bad), KIV_ST_MUTEX_CLEAR, kOsBadHandle);
  EXPECT_EQ(bad, BadHandle());
}

TEST_F(Mutex, CloseSetsTheVariableToNull) {
  Make();
  KivHandle before = mutex_;
  CHECK_OK(ctx_, KivSdMutexClose(ctx_, &mutex_));
  EXPECT_EQ(mutex_, nullptr);
  CHECK_OUTCOME(ctx_, KivSdMutexRequest(ctx_, &before, 0), KIV_ST_MUTEX_REQUEST, kOsBadHandle);
}

TEST_F(Mutex, AFailedCloseAlsoSetsTheVariableToNull) {
  KivHandle bad = BadHandle();
  CHECK_OUTCOME(ctx_, KivSdMutexClose(ctx_, &bad), KIV_ST_MUTEX_CLOSE, kOsBadHandle);
  EXPECT_EQ(bad, nullptr);
  CHECK_OUTCOME(ctx_, KivSdMutexClose(ctx_, &bad), KIV_ST_MUTEX_CLOSE, kOsBadHandle);
}

// ---- Waiting ----

// Holds the mutex on a separate thread until the end of the scope.
class ForeignHolder {
 public:
  explicit ForeignHolder(KivHandle* mutex)
      : thread_([this, mutex] {
          status_ = KivSdMutexRequest(nullptr, mutex, 0);
          holds_.Set();
          mayGo_.Await();
          KivSdMutexClear(nullptr, mutex);
        }) {
    holds_.Await();
    EXPECT_EQ(status_, KIV_ST_OK);
  }
  ~ForeignHolder() {
    mayGo_.Set();
    thread_.join();
  }

 private:
  std::atomic<uint32_t> status_{KIV_ST_ARGUMENT};
  SharedSignal holds_{UniqueName("holds")};
  SharedSignal mayGo_{UniqueName("may-go")};
  std::thread thread_;
};

TEST_F(Mutex, RequestTimesOutWhileAnotherThreadHoldsIt) {
  Make();
  const ForeignHolder holder(&mutex_);
  CHECK_OUTCOME(ctx_, KivSdMutexRequest(ctx_, &mutex_, 0), KIV_ST_MUTEX_TIMEOUT, 258u);
  const Stopwatch watch;
  CHECK_OUTCOME(ctx_, KivSdMutexRequest(ctx_, &mutex_, kShortMs), KIV_ST_MUTEX_TIMEOUT, 258u);
  EXPECT_GE(watch.ElapsedMs(), kShortAtLeastMs);
  EXPECT_LT(watch.ElapsedMs(), kLimitMs);
}

TEST_F(Mutex, RequestWaitsUntilTheHolderReleasesIt) {
  constexpr uint32_t kAlmostForEverMs = 0xFFFFFFFE;
  Make();
  for (const uint32_t timeoutMs : {kForEverMs, kAlmostForEverMs, kLimitMs}) {
    auto* holder = new ForeignHolder(&mutex_);
    const Later giveBack([holder] { delete holder; });
    CHECK_OK(ctx_, KivSdMutexRequest(ctx_, &mutex_, timeoutMs));
    CHECK_OK(ctx_, KivSdMutexClear(ctx_, &mutex_));
  }
}

// ---- Names ----

TEST_F(Mutex, OpensAnExistingObjectByName) {
  const std::string name = UniqueName("named");
  Make(name.c_str());
  KivHandle opened = nullptr;
  CHECK_OK(ctx_, KivSdMutexOpen(ctx_, name.c_str(), &opened));
  CHECK_OK(ctx_, KivSdMutexRequest(ctx_, &opened, 0));
  EXPECT_FALSE(IsFree());
  CHECK_OK(ctx_, KivSdMutexClear(ctx_, &mutex_));
  CHECK_OK(ctx_, KivSdMutexClose(ctx_, &opened));
}

// Natively a process that runs another program passes no handles to it.
#ifdef _WIN32
TEST_F(Mutex, IsInheritedByChildrenOnlyIfItWasOpened) {
  const std::string name = UniqueName("inherited");
  Make(name.c_str());
  KivHandle opened = nullptr;
  CHECK_OK(ctx_, KivSdMutexOpen(ctx_, name.c_str(), &opened));
  DWORD flags = 0;
  EXPECT_TRUE(GetHandleInformation(opened, &flags));
  EXPECT_TRUE(flags & HANDLE_FLAG_INHERIT);
  EXPECT_TRUE(GetHandleInformation(mutex_, &flags));
  EXPECT_FALSE(flags & HANDLE_FLAG_INHERIT);
  CHECK_OK(ctx_, KivSdMutexClose(ctx_, &opened));
}
#endif

TEST_F(Mutex, CreateOpensAnExistingMutexWithoutTakingIt) {
  const std::string name = UniqueName("twice");
  Make(name.c_str());
  KivHandle second = nullptr;
  CHECK_OK(ctx_, KivSdMutexCreate(ctx_, name.c_str(), &second));
  EXPECT_TRUE(IsFree());
  CHECK_OK(ctx_, KivSdMutexRequest(ctx_, &second, 0));
  EXPECT_FALSE(IsFree());
  CHECK_OK(ctx_, KivSdMutexClear(ctx_, &second));
  CHECK_OK(ctx_, KivSdMutexClose(ctx_, &second));
}

TEST_F(Mutex, UnusedNamesAndNamesOfOtherKindsAreRefused) {
  KivHandle opened = BadHandle();
  CHECK_OUTCOME(ctx_, KivSdMutexOpen(ctx_, UniqueName("none").c_str(), &opened), KIV_ST_MUTEX_OPEN,
                kOsNotFound);
  EXPECT_EQ(opened, nullptr);

  const std::string name = UniqueName("a-semaphore");
  KivHandle other = nullptr;
  CHECK_OK(ctx_, KivSdCntSemCreate(ctx_, name.c_str(), 0, 1, &other));
  opened = BadHandle();
  CHECK_OUTCOME(ctx_, KivSdMutexOpen(ctx_, name.c_str(), &opened), KIV_ST_MUTEX_OPEN,
                kOsNameOfOtherKind);
  EXPECT_EQ(opened, nullptr);
  opened = BadHandle();
  CHECK_OUTCOME(ctx_, KivSdMutexCreate(ctx_, name.c_str(), &opened), KIV_ST_MUTEX_CREATE,
                kOsNameOfOtherKind);
  EXPECT_EQ(opened, nullptr);
  CHECK_OK(ctx_, KivSdCntSemClose(ctx_, &other));
}

// ---- Holders that end, and second processes ----

TEST_F(Mutex, WhoseHolderHasEndedIsTakenWithAFailure) {
  Make();
  EXPECT_EQ(OnAnotherThread([&] { return KivSdMutexRequest(nullptr, &mutex_, 0); }), KIV_ST_OK);
  EXPECT_EQ(KivSdMutexRequest(ctx_, &mutex_, kLimitMs), KIV_ST_MUTEX_REQUEST);
  EXPECT_EQ(ctx_.status(), KIV_ST_MUTEX_REQUEST);
  EXPECT_FALSE(IsFree());
  CHECK_OK(ctx_, KivSdMutexClear(ctx_, &mutex_));
  EXPECT_TRUE(IsFree());
}

// Takes the named mutex and signals it. Then, as the test chooses, releases it or ends without a
// release on a signal, or waits to be killed.
const RegisteredRole holderRole("holds", [](const RoleArguments& arguments) {
  Context ctx;
  KivHandle mutex = nullptr;
  CHECK_OK(ctx, KivSdMutexOpen(ctx, arguments[0].c_str(), &mutex));
  CHECK_OK(ctx, KivSdMutexRequest(ctx, &mutex, 0));
  const SharedSignal holds(arguments[1]);
  const SharedSignal mayGo(arguments[2]);
  holds.Set();
  mayGo.Await();
  if (arguments[3] == "gives-back") CHECK_OK(ctx, KivSdMutexClear(ctx, &mutex));
  return kRoleDone;
});

class SharedMutex : public Mutex {
 protected:
  void SetUp() override { Make(name_.c_str()); }

  RoleArguments ArgumentsTo(const std::string& act) const {
    return {name_, holds_.name(), mayGo_.name(), act};
  }

  void ExpectTakenOver() {
    EXPECT_EQ(KivSdMutexRequest(ctx_, &mutex_, kLimitMs), KIV_ST_MUTEX_REQUEST);
    EXPECT_EQ(ctx_.status(), KIV_ST_MUTEX_REQUEST);
    CHECK_OK(ctx_, KivSdMutexClear(ctx_, &mutex_));
    // The failure is reported once; the next holder succeeds.
    CHECK_OK(ctx_, KivSdMutexRequest(ctx_, &mutex_, 0));
    CHECK_OK(ctx_, KivSdMutexClear(ctx_, &mutex_));
  }

  std::string name_ = UniqueName("shared-mutex");
  SharedSignal holds_{UniqueName("holds")};
  SharedSignal mayGo_{UniqueName("may-go")};
};

TEST_F(SharedMutex, ExcludesAnotherProcessUntilItIsReleased) {
  const ChildProcess child("holds", ArgumentsTo("gives-back"));
  holds_.Await();
  CHECK_OUTCOME(ctx_, KivSdMutexRequest(ctx_, &mutex_, 0), KIV_ST_MUTEX_TIMEOUT, 258u);
  mayGo_.Set();
  CHECK_OK(ctx_, KivSdMutexRequest(ctx_, &mutex_, kLimitMs));
  CHECK_OK(ctx_, KivSdMutexClear(ctx_, &mutex_));
  EXPECT_EQ(child.ExitCode(), kRoleDone);
}

TEST_F(SharedMutex, IsTakenOverFromAProcessThatEndsWithoutReleasingIt) {
  const ChildProcess child("holds", ArgumentsTo("keeps"));
  holds_.Await();
  mayGo_.Set();
  EXPECT_EQ(child.ExitCode(), kRoleDone);
  ExpectTakenOver();
}

TEST_F(SharedMutex, IsTakenOverFromAProcessThatIsKilledWhileAnotherWaits) {
  const ChildProcess child("holds", ArgumentsTo("keeps"));
  holds_.Await();
  {
    const Later kill([&] { child.Kill(); });
    ExpectTakenOver();
  }
  EXPECT_EQ(child.ExitCode(), kKilled);
}

}  // namespace
