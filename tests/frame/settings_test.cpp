// Process-wide settings, the lease guard, and the host's hooks.
#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <cstring>
#include <thread>

#include "kivsdu/kivsdu.h"
#include "support/context.h"
#include "support/process.h"
#include "support/threads.h"

namespace {

using kiv::test::Context;
using kiv::test::OnThreads;

// ---- Failover mode and the lease guard ----

int guardCalls = 0;
int otherGuardCalls = 0;
std::thread::id guardThread;

void CountGuard() {
  ++guardCalls;
  guardThread = std::this_thread::get_id();
}

void CountOtherGuard() { ++otherGuardCalls; }

class LeaseGuard : public testing::Test {
 protected:
  LeaseGuard() {
    guardCalls = 0;
    otherGuardCalls = 0;
    KivSdSetLeaseGuardAccessFunction(CountGuard);
  }
  ~LeaseGuard() override {
    KivSdSetFailoverModeFlag(0);
    KivSdSetLeaseGuardAccessFunction(nullptr);
  }
};

TEST(FailoverMode, IsOffAndHasNoGuardWhenTheLibraryIsLoaded) {
  IN_FRESH_PROCESS([] {
    EXPECT_EQ(KivSdIsFailoverMode(), 0u);
    KivSdGetLeaseGuard();  // calls no guard
    KivSdSetFailoverModeFlag(1);
    Context ctx;
    uint32_t pageBytes = 0;
    CHECK_OK(ctx, KivSdPageSizeGet(ctx, &pageBytes));
  });
}

TEST_F(LeaseGuard, AnyFlagIsStoredAsGivenAndMeansOnUnlessZero) {
  uint32_t pageBytes = 0;
  int expected = 0;
  for (uint32_t flag = 0; flag <= 255; ++flag) {
    KivSdSetFailoverModeFlag(static_cast<uint8_t>(flag));
    EXPECT_EQ(KivSdIsFailoverMode(), flag);
    EXPECT_EQ(KivSdPageSizeGet(nullptr, &pageBytes), KIV_ST_OK);
    if (flag != 0) ++expected;
    EXPECT_EQ(guardCalls, expected) << "flag " << flag;
  }
}

TEST_F(LeaseGuard, RunsOnTheCallingThread) {
  KivSdSetFailoverModeFlag(1);
  std::thread::id caller;
  std::thread([&] {
    caller = std::this_thread::get_id();
    uint32_t pageBytes = 0;
    EXPECT_EQ(KivSdPageSizeGet(nullptr, &pageBytes), KIV_ST_OK);
  }).join();
  EXPECT_EQ(guardCalls, 1);
  EXPECT_EQ(guardThread, caller);
}

TEST_F(LeaseGuard, RunsBeforeTheArgumentsAreChecked) {
  KivSdSetFailoverModeFlag(1);
  Context ctx;
  CHECK_ARGUMENT(ctx, KivSdPageSizeGet(ctx, nullptr));
  EXPECT_EQ(guardCalls, 1);
}

TEST_F(LeaseGuard, IsNotCalledByUnguardedOperations) {
  KivSdSetFailoverModeFlag(1);
  Context ctx;
  void* block = nullptr;
  CHECK_OK(ctx, KivSdMemAlloc(ctx, 0, 8, &block, "test", 1));
  CHECK_OK(ctx, KivSdMemClear(ctx, block, 8));
  CHECK_OK(ctx, KivSdMemFree(ctx, block, "test", 2));
  EXPECT_EQ(KivSdNamedPipeIsInitialized(nullptr), 0);
  EXPECT_EQ(guardCalls, 0);
}

TEST_F(LeaseGuard, GetCallsItInEveryMode) {
  KivSdGetLeaseGuard();
  EXPECT_EQ(guardCalls, 1);
  KivSdSetFailoverModeFlag(1);
  KivSdGetLeaseGuard();
  EXPECT_EQ(guardCalls, 2);
}

TEST_F(LeaseGuard, NullRemovesTheGuardEvenInFailoverMode) {
  KivSdSetFailoverModeFlag(1);
  KivSdSetLeaseGuardAccessFunction(nullptr);
  Context ctx;
  uint32_t pageBytes = 0;
  CHECK_OK(ctx, KivSdPageSizeGet(ctx, &pageBytes));
  KivSdGetLeaseGuard();
  EXPECT_EQ(guardCalls, 0);
}

TEST_F(LeaseGuard, TheLastInstalledGuardRuns) {
  KivSdSetLeaseGuardAccessFunction(CountOtherGuard);
  KivSdGetLeaseGuard();
  EXPECT_EQ(guardCalls, 0);
  EXPECT_EQ(otherGuardCalls, 1);
}

// ---- Hooks ----

using Values = std::array<uint64_t, 4>;

struct HookCase {
  const char* name;
  void (*install)(KivSdHookFunction);
  void (*call)(uint64_t, uint64_t, uint64_t, uint64_t);
};

const HookCase kHooks[] = {
    {"ThreadAttach", KivSdSetUkrThreadAttachFunction, KivSdUkrThreadAttach},
    {"ThreadDetach", KivSdSetUkrThreadDetachFunction, KivSdUkrThreadDetach},
    {"Statistics", KivSdSetHMStatisticsFunction, KivSdUpdateHMStatistics},
};

int hookCalls = 0;
int otherHookCalls = 0;
Values hookValues = {};

void KeepValues(uint64_t first, uint64_t second, uint64_t third, uint64_t fourth) {
  ++hookCalls;
  hookValues = {first, second, third, fourth};
}

void CountOther(uint64_t, uint64_t, uint64_t, uint64_t) { ++otherHookCalls; }

class Hook : public testing::TestWithParam<HookCase> {};

TEST_P(Hook, DoesNothingBeforeOneIsInstalledAndNullInstallsNothing) {
  IN_FRESH_PROCESS([] {
    GetParam().call(1, 2, 3, 4);
    GetParam().install(nullptr);
    GetParam().call(1, 2, 3, 4);
    EXPECT_EQ(hookCalls, 0);
    GetParam().install(KeepValues);
    GetParam().call(1, 2, 3, 4);
    EXPECT_EQ(hookCalls, 1);
  });
}

TEST_P(Hook, StaysWhenNullIsInstalledLater) {
  IN_FRESH_PROCESS([] {
    GetParam().install(KeepValues);
    GetParam().install(nullptr);
    GetParam().call(1, 2, 3, 4);
    EXPECT_EQ(hookCalls, 1);
  });
}

TEST_P(Hook, IsReplacedByALaterOne) {
  IN_FRESH_PROCESS([] {
    GetParam().install(KeepValues);
    GetParam().install(CountOther);
    GetParam().call(1, 2, 3, 4);
    EXPECT_EQ(hookCalls, 0);
    EXPECT_EQ(otherHookCalls, 1);
  });
}

TEST_P(Hook, IsSeparateFromTheOthers) {
  IN_FRESH_PROCESS([] {
    GetParam().install(KeepValues);
    for (const HookCase& other : kHooks) {
      if (other.call != GetParam().call) other.call(1, 2, 3, 4);
    }
    EXPECT_EQ(hookCalls, 0);
  });
}

TEST_P(Hook, ReceivesAllBitsOfItsFourValuesInOrder) {
  IN_FRESH_PROCESS([] {
    GetParam().install(KeepValues);
    const Values cases[] = {
        {0, UINT64_MAX, 0x8000000000000001u, 0x0123456789ABCDEFu},
        {0xFEDCBA9876543210u, 0x7FFFFFFFFFFFFFFFu, 0x100000000u, 1},
        {0, 0, 0, 0},
    };
    for (const Values& given : cases) {
      hookValues = {9, 9, 9, 9};
      GetParam().call(given[0], given[1], given[2], given[3]);
      EXPECT_EQ(hookValues, given);
    }
  });
}

constexpr uint32_t kThreads = 8;
constexpr uint64_t kCallsPerThread = 20000;

std::atomic<uint64_t> seenBy[2][kThreads];
std::atomic<uint64_t> mixedUp{0};

// The four values of a call are related: thread, number, their sum, and the sum's complement.
template <int kHook>
void Check(uint64_t thread, uint64_t number, uint64_t sum, uint64_t complement) {
  if (thread >= kThreads || sum != thread + number || complement != ~sum) {
    mixedUp.fetch_add(1, std::memory_order_relaxed);
    return;
  }
  seenBy[kHook][thread].fetch_add(1, std::memory_order_relaxed);
}

TEST_P(Hook, IsCalledFromManyThreadsAtOnceWhileItIsReplaced) {
  IN_FRESH_PROCESS([] {
    GetParam().install(Check<0>);
    OnThreads(kThreads, [](uint32_t thread) {
      for (uint64_t number = 0; number < kCallsPerThread; ++number) {
        if (thread == 0) GetParam().install(number % 2 == 0 ? Check<1> : Check<0>);
        GetParam().call(thread, number, thread + number, ~(thread + number));
      }
    });
    EXPECT_EQ(mixedUp.load(), 0u);
    for (uint32_t thread = 0; thread < kThreads; ++thread) {
      EXPECT_EQ(seenBy[0][thread].load() + seenBy[1][thread].load(), kCallsPerThread);
    }
  });
}

INSTANTIATE_TEST_SUITE_P(Every, Hook, testing::ValuesIn(kHooks),
                         [](const auto& hook) { return hook.param.name; });

// ---- Other settings ----

TEST(AppFolderName, IsAppUntilOneIsSet) {
  IN_FRESH_PROCESS([] { EXPECT_STREQ(KivSdAppFolderName(), "APP"); });
}

TEST(AppFolderName, IsTheCallersTextAndNotACopy) {
  IN_FRESH_PROCESS([] {
    char name[] = "cells";
    KivSdSetAppFolderName(name);
    EXPECT_EQ(KivSdAppFolderName(), name);
    name[0] = 'b';
    EXPECT_STREQ(KivSdAppFolderName(), "bells");
    KivSdSetAppFolderName("other");
    EXPECT_STREQ(KivSdAppFolderName(), "other");
  });
}

TEST(FileLockingMode, HasNoEffectOnTheFileLockOperations) {
  Context ctx;
  for (const uint32_t mode : {0u, 2u, UINT32_MAX, 1u}) {
    KivSdSetFileLockingMode(mode);
    CHECK_OK(ctx, KivSdFileLock(ctx));
    CHECK_OK(ctx, KivSdFileUnlock(ctx));
  }
}

TEST(NamedPipeVariable, IsInitializedExactlyWhenItHoldsAHandle) {
  EXPECT_EQ(KivSdNamedPipeIsInitialized(nullptr), 0);
  KivHandle pipe = nullptr;
  EXPECT_EQ(KivSdNamedPipeIsInitialized(&pipe), 0);
  for (const uintptr_t handle : {uintptr_t{1}, UINTPTR_MAX, uintptr_t{1} << 40}) {
    pipe = reinterpret_cast<KivHandle>(handle);
    EXPECT_EQ(KivSdNamedPipeIsInitialized(&pipe), 1);
  }
}

}  // namespace
