// Waits on kernel objects: the arguments of the system calls, and the status for each result.
#include <gtest/gtest.h>

#include <functional>
#include <vector>

#include "kivsdu/kivsdu.h"
#include "support/context.h"
#include "support/import_patch.h"

namespace {

using kiv::test::Context;
using kiv::test::ScriptedImport;

constexpr uintptr_t kHandle = 0x5A50;
constexpr uint32_t kError = 1234;
constexpr uint32_t kForEver = 0xFFFFFFFF;

// A wait; the operation uses as many bits of the time-out as its parameter has.
using WaitOperation = std::function<uint32_t(KivSdContext*, KivHandle*, uint64_t)>;

// The caller's time-out, and the time-out that the system must get.
struct TimeOut {
  uint64_t asked;
  uint32_t handedOn;
};

const std::vector<TimeOut> kNegativeIsForEver = {
    {0, 0},
    {30, 30},
    {0x7FFFFFFF, 0x7FFFFFFF},
    {0x80000000, kForEver},
    {0xFFFFFFFE, kForEver},
    {0xFFFFFFFF, kForEver},
};
// The high half of a 64-bit time-out may hold anything.
const std::vector<TimeOut> kLowHalfNegativeIsForEver = {
    {0, 0},
    {30, 30},
    {0x7FFFFFFF, 0x7FFFFFFF},
    {0x80000000, kForEver},
    {0xFFFFFFFE, kForEver},
    {0xFFFFFFFF, kForEver},
    {0xFFFFFFFF'FFFFFFFE, kForEver},
    {0x80000000'00000000, 0},
    {0xFFFFFFFF'0000001E, 30},
    {0x00000001'80000000, kForEver},
};
const std::vector<TimeOut> kUnchanged = {
    {0, 0},
    {30, 30},
    {0x7FFFFFFF, 0x7FFFFFFF},
    {0x80000000, 0x80000000},
    {0xFFFFFFFE, 0xFFFFFFFE},
    {0xFFFFFFFF, kForEver},
};
const std::vector<TimeOut> kAlwaysForEver = {{0, kForEver}};

struct Waiting {
  const char* name;
  WaitOperation operation;
  uint32_t timedOut;
  uint32_t failed;
  std::vector<TimeOut> timeOuts;
  bool checksPointer = true;
};

const Waiting kWaitings[] = {
    {"CntSemRequest", KivSdCntSemRequest, KIV_ST_SEM_TIMEOUT, KIV_ST_SEM_REQUEST,
     kLowHalfNegativeIsForEver},
    {"CountingEventTimedWait", KivSdCountingEventTimedWait, KIV_ST_SEM_TIMEOUT, KIV_ST_SEM_REQUEST,
     kLowHalfNegativeIsForEver},
    {"CountingEventWait",
     [](auto ctx, auto event, uint64_t) { return KivSdCountingEventWait(ctx, event); },
     KIV_ST_SEM_TIMEOUT, KIV_ST_SEM_REQUEST, kAlwaysForEver},
    {"MutexRequest",
     [](auto ctx, auto mutex, uint64_t timeoutMs) {
       return KivSdMutexRequest(ctx, mutex, static_cast<uint32_t>(timeoutMs));
     },
     KIV_ST_MUTEX_TIMEOUT, KIV_ST_MUTEX_REQUEST, kUnchanged},
    {"EventWait",
     [](auto ctx, auto event, uint64_t timeoutMs) {
       return KivSdEventWait(ctx, event, static_cast<uint32_t>(timeoutMs));
     },
     KIV_ST_EVENT_TIMEOUT, KIV_ST_EVENT_WAIT, kUnchanged},
    {"StdEventTimedWait",
     [](auto ctx, auto event, uint64_t timeoutMs) {
       return KivSdStdEventTimedWait(ctx, event, static_cast<int32_t>(timeoutMs));
     },
     KIV_ST_EVENT_TIMEOUT, KIV_ST_EVENT_WAIT, kNegativeIsForEver, false},
    {"StdEventWait", [](auto ctx, auto event, uint64_t) { return KivSdStdEventWait(ctx, event); },
     KIV_ST_EVENT_TIMEOUT, KIV_ST_EVENT_WAIT, kAlwaysForEver, false},
};

void ExpectOutcomeOf(const Waiting& waiting, uint32_t waitResult, uint32_t status,
                     uint32_t osError) {
  SCOPED_TRACE(waiting.name);
  Context ctx;
  const ScriptedImport wait("WaitForSingleObject", {.result = waitResult, .error = kError});
  auto handle = reinterpret_cast<KivHandle>(kHandle);
  CHECK_OUTCOME(ctx, waiting.operation(ctx, &handle, 0), status, osError);
  EXPECT_EQ(waiting.operation(nullptr, &handle, 0), status);
  EXPECT_EQ(reinterpret_cast<uintptr_t>(handle), kHandle);
}

TEST(Waiting, PassesOnTheHandleAndTheTimeOut) {
  for (const Waiting& waiting : kWaitings) {
    for (const auto& [asked, handedOn] : waiting.timeOuts) {
      SCOPED_TRACE(testing::Message() << waiting.name << " " << asked);
      const ScriptedImport wait("WaitForSingleObject", {.result = 0});
      auto handle = reinterpret_cast<KivHandle>(kHandle);
      EXPECT_EQ(waiting.operation(nullptr, &handle, asked), KIV_ST_OK);
      ASSERT_EQ(wait.calls().size(), 1u);
      EXPECT_EQ(wait.calls()[0][0], kHandle);
      EXPECT_EQ(static_cast<uint32_t>(wait.calls()[0][1]), handedOn);
    }
  }
}

TEST(Waiting, SucceedsWithoutAnErrorWhateverTheLastErrorIs) {
  for (const Waiting& waiting : kWaitings) ExpectOutcomeOf(waiting, 0, KIV_ST_OK, 0);
}

TEST(Waiting, RecordsTheResultOfAWaitThatTimedOut) {
  for (const Waiting& waiting : kWaitings) ExpectOutcomeOf(waiting, 258, waiting.timedOut, 258);
}

TEST(Waiting, RecordsTheLastErrorOfAWaitThatFailed) {
  for (const Waiting& waiting : kWaitings) {
    ExpectOutcomeOf(waiting, 0xFFFFFFFF, waiting.failed, kError);
  }
}

TEST(Waiting, TreatsAnAbandonedMutexAndAnyOtherResultAsAFailure) {
  for (const Waiting& waiting : kWaitings) {
    for (const uint32_t result : {128u, 1u, 192u, 257u, 259u}) {
      ExpectOutcomeOf(waiting, result, waiting.failed, kError);
    }
  }
}

TEST(Waiting, MakesNoSystemCallOnABadArgument) {
  const ScriptedImport wait("WaitForSingleObject", {.result = 0});
  for (const Waiting& waiting : kWaitings) {
    if (!waiting.checksPointer) continue;
    EXPECT_EQ(waiting.operation(nullptr, nullptr, 0), KIV_ST_ARGUMENT) << waiting.name;
  }
  EXPECT_TRUE(wait.calls().empty());
}

}  // namespace
