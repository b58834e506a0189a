// Kernel objects: the arguments of the system calls, and the status of every failing call.
#include <gtest/gtest.h>

#include <functional>

#include "kivsdu/kivsdu.h"
#include "support/context.h"
#include "support/import_patch.h"
#include "support/os_errors.h"

namespace {

using kiv::test::Context;
using kiv::test::kOsTooManyPosts;
using kiv::test::ScriptedImport;

// Hosts compare these numbers. For a mutex the time-out has the lower number, for a semaphore the
// failed request has; both stay.
static_assert(KIV_ST_SEM_CREATE == 1130400 && KIV_ST_SEM_OPEN == 1130401);
static_assert(KIV_ST_SEM_CLOSE == 1130402 && KIV_ST_SEM_REQUEST == 1130403);
static_assert(KIV_ST_SEM_TIMEOUT == 1130404 && KIV_ST_SEM_CLEAR == 1130405);
static_assert(KIV_ST_MUTEX_CREATE == 1130406 && KIV_ST_MUTEX_OPEN == 1130407);
static_assert(KIV_ST_MUTEX_CLOSE == 1130408 && KIV_ST_MUTEX_TIMEOUT == 1130409);
static_assert(KIV_ST_MUTEX_REQUEST == 1130410 && KIV_ST_MUTEX_CLEAR == 1130411);
static_assert(KIV_ST_EVENT_CREATE == 1130412 && KIV_ST_EVENT_CLOSE == 1130414);
static_assert(KIV_ST_EVENT_SET == 1130415 && KIV_ST_EVENT_TIMEOUT == 1130416);
static_assert(KIV_ST_EVENT_WAIT == 1130417 && KIV_ST_EVENT_CLEAR == 1130418);
static_assert(KIV_ST_SEM_OVERFLOW == 1130423 && KIV_ST_ARGUMENT == 1130001);

constexpr uintptr_t kHandle = 0x5A50;
constexpr uint32_t kError = 1234;  // an error that the library does not treat specially

KivHandle AnyHandle() { return reinterpret_cast<KivHandle>(kHandle); }

uint32_t Low(uintptr_t word) { return static_cast<uint32_t>(word); }

using HandleOperation = std::function<uint32_t(KivSdContext*, KivHandle*)>;

// ---- Making and opening ----

struct Making {
  const char* name;
  const char* function;
  HandleOperation operation;
  uint32_t status;
  bool emptiesOnFailure;
};

const Making kMakings[] = {
    {"CntSemCreate", "CreateSemaphoreA",
     [](auto ctx, auto made) { return KivSdCntSemCreate(ctx, "n", 2, 7, made); }, KIV_ST_SEM_CREATE,
     true},
    {"CntSemOpen", "OpenSemaphoreA",
     [](auto ctx, auto made) { return KivSdCntSemOpen(ctx, "n", made); }, KIV_ST_SEM_OPEN, true},
    {"MutexCreate", "CreateMutexA",
     [](auto ctx, auto made) { return KivSdMutexCreate(ctx, "n", made); }, KIV_ST_MUTEX_CREATE,
     true},
    {"MutexOpen", "OpenMutexA", [](auto ctx, auto made) { return KivSdMutexOpen(ctx, "n", made); },
     KIV_ST_MUTEX_OPEN, true},
    {"EventCreate", "CreateEventA", KivSdEventCreate, KIV_ST_EVENT_CREATE, true},
    {"StdEventCreate", "CreateEventA", KivSdStdEventCreate, KIV_ST_EVENT_CREATE, false},
    {"CountingEventCreate", "CreateSemaphoreA",
     [](auto ctx, auto made) { return KivSdCountingEventCreate(ctx, made, 2); }, KIV_ST_SEM_CREATE,
     true},
};

TEST(Making, ReportsTheSystemsError) {
  Context ctx;
  for (const Making& making : kMakings) {
    SCOPED_TRACE(making.name);
    const ScriptedImport failing(making.function, {.result = 0, .error = kError});
    KivHandle made = AnyHandle();
    CHECK_OUTCOME(ctx, making.operation(ctx, &made), making.status, kError);
    EXPECT_EQ(made, making.emptiesOnFailure ? nullptr : AnyHandle());
    EXPECT_EQ(making.operation(nullptr, &made), making.status);
    EXPECT_EQ(failing.calls().size(), 2u);
  }
}

TEST(Making, ReturnsTheSystemsHandleAndIgnoresTheLastError) {
  Context ctx;
  for (const Making& making : kMakings) {
    SCOPED_TRACE(making.name);
    const ScriptedImport existing(making.function, {.result = kHandle, .error = 183});
    KivHandle made = nullptr;
    CHECK_OK(ctx, making.operation(ctx, &made));
    EXPECT_EQ(made, AnyHandle());
  }
}

TEST(Making, PassesOnItsArguments) {
  const char name[] = "handed on";
  const auto nameWord = reinterpret_cast<uintptr_t>(name);
  KivHandle made = nullptr;
  {
    const ScriptedImport create("CreateSemaphoreA", {.result = kHandle});
    KivSdCntSemCreate(nullptr, name, 3, 9, &made);
    KivSdCntSemCreate(nullptr, nullptr, -5, INT32_MIN, &made);
    KivSdCountingEventCreate(nullptr, &made, 4);
    ASSERT_EQ(create.calls().size(), 3u);
    const struct {
      int32_t initial, maximum;
      uintptr_t name;
    } expected[] = {{3, 9, nameWord}, {-5, INT32_MIN, 0}, {4, INT32_MAX, 0}};
    for (size_t i = 0; i < 3; ++i) {
      EXPECT_EQ(create.calls()[i][0], 0u) << "security";
      EXPECT_EQ(Low(create.calls()[i][1]), static_cast<uint32_t>(expected[i].initial));
      EXPECT_EQ(Low(create.calls()[i][2]), static_cast<uint32_t>(expected[i].maximum));
      EXPECT_EQ(create.calls()[i][3], expected[i].name);
    }
  }
  {
    const ScriptedImport open("OpenSemaphoreA", {.result = kHandle});
    KivSdCntSemOpen(nullptr, name, &made);
    ASSERT_EQ(open.calls().size(), 1u);
    EXPECT_EQ(Low(open.calls()[0][0]), 0x1F0003u);
    EXPECT_EQ(Low(open.calls()[0][1]), 1u) << "inheritable";
    EXPECT_EQ(open.calls()[0][2], nameWord);
  }
  {
    const ScriptedImport create("CreateMutexA", {.result = kHandle});
    KivSdMutexCreate(nullptr, name, &made);
    KivSdMutexCreate(nullptr, nullptr, &made);
    ASSERT_EQ(create.calls().size(), 2u);
    EXPECT_EQ(create.calls()[0][0], 0u);
    EXPECT_EQ(Low(create.calls()[0][1]), 0u) << "not held from the start";
    EXPECT_EQ(create.calls()[0][2], nameWord);
    EXPECT_EQ(create.calls()[1][2], 0u);
  }
  {
    const ScriptedImport open("OpenMutexA", {.result = kHandle});
    KivSdMutexOpen(nullptr, name, &made);
    ASSERT_EQ(open.calls().size(), 1u);
    EXPECT_EQ(Low(open.calls()[0][0]), 0x1F0001u);
    EXPECT_EQ(Low(open.calls()[0][1]), 1u) << "inheritable";
    EXPECT_EQ(open.calls()[0][2], nameWord);
  }
  const ScriptedImport create("CreateEventA", {.result = kHandle});
  KivSdEventCreate(nullptr, &made);
  KivSdStdEventCreate(nullptr, &made);
  ASSERT_EQ(create.calls().size(), 2u);
  for (const ScriptedImport::Arguments& call : create.calls()) {
    EXPECT_EQ(call[0], 0u) << "security";
    EXPECT_EQ(Low(call[1]), 0u) << "resets by itself";
    EXPECT_EQ(call[3], 0u) << "name";
  }
  EXPECT_EQ(Low(create.calls()[0][2]), 1u) << "a gate is open";
  EXPECT_EQ(Low(create.calls()[1][2]), 0u) << "a standard event is not signalled";
}

TEST(Making, MakesNoSystemCallOnABadArgument) {
  for (const Making& making : kMakings) {
    if (!making.emptiesOnFailure) continue;  // standard events do not check the pointer
    SCOPED_TRACE(making.name);
    const ScriptedImport call(making.function, {.result = kHandle});
    EXPECT_EQ(making.operation(nullptr, nullptr), KIV_ST_ARGUMENT);
    EXPECT_TRUE(call.calls().empty());
  }
}

// ---- Operations on a handle that succeed or fail ----

struct Acting {
  const char* name;
  const char* function;
  HandleOperation operation;
  uint32_t error;
  uint32_t status;
  bool checksPointer = true;
  bool emptiesVariable = false;
};

uint32_t ClearSemaphore(KivSdContext* ctx, KivHandle* semaphore) {
  return KivSdCntSemClear(ctx, semaphore, 1, nullptr);
}

const Acting kActings[] = {
    {"CntSemClose", "CloseHandle", KivSdCntSemClose, kError, KIV_ST_SEM_CLOSE},
    {"CntSemClear, too many", "ReleaseSemaphore", ClearSemaphore, kOsTooManyPosts,
     KIV_ST_SEM_OVERFLOW},
    {"CntSemClear", "ReleaseSemaphore", ClearSemaphore, kError, KIV_ST_SEM_CLEAR},
    {"CntSemClear, near", "ReleaseSemaphore", ClearSemaphore, 297, KIV_ST_SEM_CLEAR},
    {"CntSemClear, no error", "ReleaseSemaphore", ClearSemaphore, 0, KIV_ST_SEM_CLEAR},
    {"MutexClose", "CloseHandle", KivSdMutexClose, kError, KIV_ST_MUTEX_CLOSE, true, true},
    {"MutexClear", "ReleaseMutex", KivSdMutexClear, kError, KIV_ST_MUTEX_CLEAR},
    {"EventClose", "CloseHandle", KivSdEventClose, kError, KIV_ST_EVENT_CLOSE},
    {"EventSet", "ResetEvent", KivSdEventSet, kError, KIV_ST_EVENT_SET},
    {"EventClear", "SetEvent", KivSdEventClear, kError, KIV_ST_EVENT_CLEAR},
    {"StdEventClose", "CloseHandle", KivSdStdEventClose, kError, KIV_ST_EVENT_CLOSE, false},
    {"StdEventSet", "SetEvent", KivSdStdEventSet, kError, KIV_ST_EVENT_CLEAR, false},
    {"StdEventReset", "ResetEvent", KivSdStdEventReset, kError, KIV_ST_EVENT_SET, false},
    {"CountingEventClose", "CloseHandle", KivSdCountingEventClose, kError, KIV_ST_SEM_CLOSE},
    {"CountingEventSet, too many", "ReleaseSemaphore", KivSdCountingEventSet, kOsTooManyPosts,
     KIV_ST_SEM_OVERFLOW},
    {"CountingEventSet", "ReleaseSemaphore", KivSdCountingEventSet, kError, KIV_ST_SEM_CLEAR},
};

TEST(Acting, ReportsTheSystemsError) {
  Context ctx;
  for (const Acting& acting : kActings) {
    SCOPED_TRACE(acting.name);
    const ScriptedImport failing(acting.function, {.result = 0, .error = acting.error});
    KivHandle handle = AnyHandle();
    CHECK_OUTCOME(ctx, acting.operation(ctx, &handle), acting.status, acting.error);
    EXPECT_EQ(handle, acting.emptiesVariable ? nullptr : AnyHandle());
    handle = AnyHandle();
    EXPECT_EQ(acting.operation(nullptr, &handle), acting.status);
  }
}

TEST(Acting, MakesOneCallOnTheHandleAndIgnoresTheLastErrorOnSuccess) {
  Context ctx;
  for (const Acting& acting : kActings) {
    SCOPED_TRACE(acting.name);
    const ScriptedImport succeeding(acting.function, {.result = 1, .error = acting.error});
    KivHandle handle = AnyHandle();
    CHECK_OK(ctx, acting.operation(ctx, &handle));
    ASSERT_EQ(succeeding.calls().size(), 1u);
    EXPECT_EQ(succeeding.calls()[0][0], kHandle);
    EXPECT_EQ(handle, acting.emptiesVariable ? nullptr : AnyHandle());
  }
}

TEST(Acting, MakesNoSystemCallOnABadArgument) {
  for (const Acting& acting : kActings) {
    if (!acting.checksPointer) continue;
    SCOPED_TRACE(acting.name);
    const ScriptedImport call(acting.function, {.result = 1});
    EXPECT_EQ(acting.operation(nullptr, nullptr), KIV_ST_ARGUMENT);
    EXPECT_TRUE(call.calls().empty());
  }
}

TEST(Acting, PassesOnTheReleaseCount) {
  const ScriptedImport release("ReleaseSemaphore", {.result = 1});
  KivHandle handle = AnyHandle();
  KivSdCntSemClear(nullptr, &handle, 17, nullptr);
  KivSdCntSemClear(nullptr, &handle, -3, nullptr);
  KivSdCountingEventSet(nullptr, &handle);
  ASSERT_EQ(release.calls().size(), 3u);
  EXPECT_EQ(Low(release.calls()[0][1]), 17u);
  EXPECT_EQ(Low(release.calls()[1][1]), static_cast<uint32_t>(-3));
  EXPECT_EQ(Low(release.calls()[2][1]), 1u);
}

}  // namespace
