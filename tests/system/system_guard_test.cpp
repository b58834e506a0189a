// The lease guard in failover mode: every system information operation except the login name calls
// the guard first, and no time operation calls it.
#include <gtest/gtest.h>

#include <algorithm>
#include <csetjmp>
#include <functional>
#include <iterator>

#include "kivsdu/kivsdu.h"
#include "support/import_patch.h"
#include "support/machine_facts.h"

namespace {

using kiv::test::ImportPatch;

int guardCalls;
bool guardSawOutput;  // whether the operation had written its output when the guard first ran
unsigned char outputs[80000];

bool IsOutputUntouched() {
  for (const unsigned char byte : outputs) {
    if (byte != 0xEE) return false;
  }
  return true;
}

void Guard() {
  if (guardCalls++ == 0) guardSawOutput = !IsOutputUntouched();
}

// The place for the output of a test's operation.
template <typename Record>
Record* Output() {
  return reinterpret_cast<Record*>(outputs);
}

struct Operation {
  const char* name;
  std::function<void()> call;
};

const Operation kGuarded[] = {
    {"KivSdOSResourcesSizeGet", [] { KivSdOSResourcesSizeGet(nullptr, Output<uint64_t>()); }},
    {"KivSdOSResourcesGet",
     [] { KivSdOSResourcesGet(nullptr, sizeof outputs, Output<KivSdOSResources>()); }},
    {"KivSdCPUInfoGet", [] { KivSdCPUInfoGet(nullptr, Output<KivSdProcessorInfo>()); }},
    {"KivSdCPUCountGet", [] { KivSdCPUCountGet(); }},
    {"KivSdOSInfoGet", [] { KivSdOSInfoGet(nullptr, Output<KivSdOSInfo>()); }},
    {"KivSdPhysMemInfoGet", [] { KivSdPhysMemInfoGet(nullptr, Output<KivSdPhysMemInfo>()); }},
    {"KivSdSwapInfoGet", [] { KivSdSwapInfoGet(nullptr, Output<KivSdSwapInfo>()); }},
    {"KivSdAvailVirtMemGet", [] { KivSdAvailVirtMemGet(nullptr, Output<uint64_t>()); }},
    {"KivSdDrivesGet", [] { KivSdDrivesGet(nullptr, Output<KivSdDrives>()); }},
    {"KivSdDriveOrdinalToName", [] { KivSdDriveOrdinalToName(nullptr, 1, 2, Output<char>()); }},
    {"KivSdDriveInfoGet", [] { KivSdDriveInfoGet(nullptr, 3, Output<KivSdDriveInfo>()); }},
    {"KivSdPageSizeGet", [] { KivSdPageSizeGet(nullptr, Output<uint32_t>()); }},
    {"KivSdMaxAllocGet", [] { KivSdMaxAllocGet(nullptr, Output<uint64_t>()); }},
    {"KivSdMaxAlignGet", [] { KivSdMaxAlignGet(nullptr, Output<uint32_t>()); }},
    {"KivSdIsInfinite", [] { KivSdIsInfinite(nullptr, 1.0, Output<uint8_t>()); }},
    {"KivSdHomePathGet", [] { KivSdHomePathGet(nullptr, 1029, Output<char>()); }},
    {"KivSdProcessWorkingSetSizeGet",
     [] {
       KivSdProcessWorkingSetSizeGet(nullptr, kiv::test::ThisProcess(), Output<uint64_t>(),
                                     Output<uint64_t>() + 1);
     }},
    {"KivSdProcessWorkingSetSizeSet",
     [] { KivSdProcessWorkingSetSizeSet(nullptr, nullptr, 1, 2); }},
};

// Guarded operations with arguments that they refuse with KIV_ST_ARGUMENT.
const std::function<uint32_t()> kRefused[] = {
    [] { return KivSdPageSizeGet(nullptr, nullptr); },
    [] { return KivSdMaxAllocGet(nullptr, nullptr); },
    [] { return KivSdMaxAlignGet(nullptr, nullptr); },
    [] { return KivSdIsInfinite(nullptr, 1.0, nullptr); },
    [] { return KivSdHomePathGet(nullptr, 1, nullptr); },
    [] { return KivSdProcessWorkingSetSizeGet(nullptr, nullptr, nullptr, nullptr); },
    [] { return KivSdProcessWorkingSetSizeSet(nullptr, nullptr, 0, 0); },
};

// Guarded operations with arguments that are programming errors.
const Operation kBreaches[] = {
    {"pSizeOSResource != KIV_NULL", [] { KivSdOSResourcesSizeGet(nullptr, nullptr); }},
    {"pOSResources != KIV_NULL", [] { KivSdOSResourcesGet(nullptr, 3500, nullptr); }},
    {"pCPUInfo != KIV_NULL", [] { KivSdCPUInfoGet(nullptr, nullptr); }},
    {"pOSInfo != KIV_NULL", [] { KivSdOSInfoGet(nullptr, nullptr); }},
    {"pPhysMemInfo != KIV_NULL", [] { KivSdPhysMemInfoGet(nullptr, nullptr); }},
    {"pSwapInfo != KIV_NULL", [] { KivSdSwapInfoGet(nullptr, nullptr); }},
    {"pSizeAvailVirtMem != KIV_NULL", [] { KivSdAvailVirtMemGet(nullptr, nullptr); }},
    {"pDrives != KIV_NULL", [] { KivSdDrivesGet(nullptr, nullptr); }},
    {"ulOrdinal >= 1 && ulOrdinal <= KIV_DRIVES_MAX",
     [] { KivSdDriveOrdinalToName(nullptr, 0, 2, Output<char>()); }},
    {"pszDriveName != KIV_NULL && sizeBuf != 0",
     [] { KivSdDriveOrdinalToName(nullptr, 1, 2, nullptr); }},
    {"ulOrdinal >= 1 && ulOrdinal <= KIV_DRIVES_MAX",
     [] { KivSdDriveInfoGet(nullptr, 0, Output<KivSdDriveInfo>()); }},
    {"pDriveInfo != KIV_NULL", [] { KivSdDriveInfoGet(nullptr, 1, nullptr); }},
};

const Operation kNeverGuarded[] = {
    {"KivSdGetSessionLoginUsername",
     [] {
       uint32_t length;
       KivSdGetSessionLoginUsername(nullptr, Output<char>(), &length);
       KivSdGetSessionLoginUsername(nullptr, nullptr, nullptr);
     }},
    {"KivSdSleep", [] { KivSdSleep(nullptr, 0); }},
    {"KivSdClock", [] { KivSdClock(nullptr, Output<uint32_t>()); }},
    {"KivSdTime", [] { KivSdTime(nullptr, Output<uint64_t>()); }},
    {"KivSdTimeElapsedOS", [] { KivSdTimeElapsedOS(nullptr, Output<uint64_t>()); }},
    {"KivSdLocalTimeGet", [] { KivSdLocalTimeGet(nullptr, 1, Output<KivSdLocalTime>()); }},
    {"KivSdTimeStrGet",
     [] {
       const KivSdLocalTime local = {1, 0, 0, 0, 1, 0, 70, 4};
       KivSdTimeStrGet(nullptr, &local, 26, Output<char>());
     }},
    {"KivSdCTime", [] { KivSdCTime(nullptr, 1, 26, Output<char>()); }},
    {"KivSdGetUtcTimestamp", [] { KivSdGetUtcTimestamp(nullptr, 0, Output<KivSdUtcTimestamp>()); }},
    {"KivSdGetFastTimer", [] { KivSdGetFastTimer(nullptr, Output<uint32_t>()); }},
};

// Sets failover mode and a guard that counts its calls.
class LeaseGuard : public testing::Test {
 protected:
  LeaseGuard() {
    KivSdSetLeaseGuardAccessFunction(&Guard);
    KivSdSetFailoverModeFlag(1);
  }

  ~LeaseGuard() override {
    KivSdSetFailoverModeFlag(0);
    KivSdSetLeaseGuardAccessFunction(nullptr);
  }

  static void Prepare() {
    guardCalls = 0;
    guardSawOutput = false;
    std::fill(std::begin(outputs), std::end(outputs), 0xEE);
  }
};

TEST_F(LeaseGuard, IsCalledBeforeAnythingIsWritten) {
  for (const Operation& operation : kGuarded) {
    Prepare();
    operation.call();
    EXPECT_GE(guardCalls, 1) << operation.name;
    EXPECT_FALSE(guardSawOutput) << operation.name;
  }
}

TEST_F(LeaseGuard, IsCalledForEveryNonZeroMode) {
  for (const int mode : {2, 0x80, 0xFF}) {
    KivSdSetFailoverModeFlag(static_cast<uint8_t>(mode));
    for (const Operation& operation : kGuarded) {
      Prepare();
      operation.call();
      EXPECT_GE(guardCalls, 1) << operation.name;
    }
  }
}

TEST_F(LeaseGuard, IsCalledBeforeAnArgumentIsRefused) {
  for (const auto& refused : kRefused) {
    Prepare();
    EXPECT_EQ(refused(), KIV_ST_ARGUMENT);
    EXPECT_EQ(guardCalls, 1);
  }
}

jmp_buf breachPoint;
const char* breach;
int guardCallsBeforeBreach;

// Replaces the runtime's assertion routine: returns to the test instead of ending the process.
void ReturnToTest(const char* condition, const char*, unsigned) {
  breach = condition;
  guardCallsBeforeBreach = guardCalls;
  std::longjmp(breachPoint, 1);
}

TEST_F(LeaseGuard, IsCalledBeforeAProgrammingErrorEndsTheProcess) {
  const ImportPatch assertion("_assert", reinterpret_cast<void*>(&ReturnToTest));
  for (const Operation& operation : kBreaches) {
    Prepare();
    breach = nullptr;
    guardCallsBeforeBreach = 0;
    if (setjmp(breachPoint) == 0) operation.call();
    EXPECT_STREQ(breach, operation.name);
    EXPECT_EQ(guardCallsBeforeBreach, 1) << operation.name;
  }
}

TEST_F(LeaseGuard, IsNotCalledForTheLoginNameOrForTime) {
  for (const Operation& operation : kNeverGuarded) {
    Prepare();
    operation.call();
    EXPECT_EQ(guardCalls, 0) << operation.name;
  }
}

TEST_F(LeaseGuard, IsNotCalledOutsideFailoverMode) {
  KivSdSetFailoverModeFlag(0);
  for (const Operation& operation : kGuarded) {
    Prepare();
    operation.call();
    EXPECT_EQ(guardCalls, 0) << operation.name;
  }
  for (const auto& refused : kRefused) {
    Prepare();
    EXPECT_EQ(refused(), KIV_ST_ARGUMENT);
    EXPECT_EQ(guardCalls, 0);
  }
}

TEST_F(LeaseGuard, IsOptional) {
  KivSdSetLeaseGuardAccessFunction(nullptr);
  for (const Operation& operation : kGuarded) operation.call();
  for (const auto& refused : kRefused) EXPECT_EQ(refused(), KIV_ST_ARGUMENT);
}

}  // namespace
