// Threads and processes: the arguments of the system calls, and the status of every failing call.
#include <gtest/gtest.h>

#include <functional>
#include <string>

#include "kivsdu/kivsdu.h"
#include "support/context.h"
#include "support/import_patch.h"
#include "support/os_errors.h"

namespace {

using kiv::test::Context;
using kiv::test::kOsAccessDenied;
using kiv::test::ScriptedImport;

// Hosts compare these numbers.
static_assert(KIV_ST_THREAD_CREATE == 1130300 && KIV_ST_THREAD_DELETE == 1130301);
static_assert(KIV_ST_THREAD_HANDLE == 1130305 && KIV_ST_THREAD_PRIORITY_GET == 1130306);
static_assert(KIV_ST_THREAD_PRIORITY_SET == 1130307 && KIV_ST_PROCESS_DELETE == 1130309);
static_assert(KIV_ST_PROCESS_ALIVE == 1130311 && KIV_ST_PROCESS_PRIORITY_GET == 1130312);
static_assert(KIV_ST_PROCESS_PRIORITY_SET == 1130313);

constexpr uintptr_t kHandle = 0x5A50;
constexpr uint32_t kError = 1234;  // an error that the library does not treat specially
constexpr uint32_t kForEver = 0xFFFFFFFF;
constexpr uint32_t kSameAccess = 2;
constexpr uint32_t kUnwritten = 4711;
constexpr uintptr_t kCallingThread = static_cast<uintptr_t>(-2);
constexpr uintptr_t kCallingProcess = static_cast<uintptr_t>(-1);

KivHandle AnyHandle() { return reinterpret_cast<KivHandle>(kHandle); }

uint32_t Low(uintptr_t word) { return static_cast<uint32_t>(word); }

uint32_t DoNothing(void*) { return 0; }

// ---- Threads ----

TEST(ThreadCreate, PassesOnItsArguments) {
  Context ctx;
  int argument = 0;
  uint32_t id = 0;
  KivHandle thread = nullptr;
  const ScriptedImport create("CreateThread", {.result = kHandle, .error = kError});
  CHECK_OK(ctx, KivSdThreadCreate(ctx, DoNothing, UINT64_MAX, 0x87654321, &argument, &id, &thread));
  EXPECT_EQ(thread, AnyHandle());
  ASSERT_EQ(create.calls().size(), 1u);
  const ScriptedImport::Arguments& call = create.calls()[0];
  EXPECT_EQ(call[0], 0u) << "security";
  EXPECT_EQ(call[1], 0x87654321u) << "stack size";
  EXPECT_EQ(call[2], reinterpret_cast<uintptr_t>(&DoNothing));
  EXPECT_EQ(call[3], reinterpret_cast<uintptr_t>(&argument));
  EXPECT_EQ(Low(call[4]), 0u) << "flags";
  EXPECT_EQ(call[5], reinterpret_cast<uintptr_t>(&id)) << "written before the thread runs";
}

TEST(ThreadCreate, ReturnsNoHandleOnFailure) {
  Context ctx;
  const ScriptedImport create("CreateThread", {.result = 0, .error = kError});
  uint32_t id = kUnwritten;
  KivHandle thread = AnyHandle();
  CHECK_OUTCOME(ctx, KivSdThreadCreate(ctx, DoNothing, 0, 0, nullptr, &id, &thread),
                KIV_ST_THREAD_CREATE, kError);
  EXPECT_EQ(thread, nullptr);
  EXPECT_EQ(id, kUnwritten);
  EXPECT_EQ(KivSdThreadCreate(nullptr, DoNothing, 0, 0, nullptr, &id, &thread),
            KIV_ST_THREAD_CREATE);
}

KivHandle* watched = nullptr;
KivHandle watchedDuringTheCall = nullptr;

void* CreateThreadThatLooks(void*, uintptr_t, void*, void*, uint32_t, void*) {
  watchedDuringTheCall = *watched;
  return AnyHandle();
}

TEST(ThreadCreate, ClearsTheHandleBeforeItStartsTheThread) {
  uint32_t id = 0;
  KivHandle thread = reinterpret_cast<KivHandle>(uintptr_t{1});
  watched = &thread;
  watchedDuringTheCall = thread;
  const kiv::test::ImportPatch patch("CreateThread",
                                     reinterpret_cast<void*>(&CreateThreadThatLooks));
  EXPECT_EQ(KivSdThreadCreate(nullptr, DoNothing, 0, 0, nullptr, &id, &thread), KIV_ST_OK);
  EXPECT_EQ(watchedDuringTheCall, nullptr);
  EXPECT_EQ(thread, AnyHandle());
}

TEST(ThreadCreate, StartsNoThreadOnABadArgument) {
  Context ctx;
  const ScriptedImport create("CreateThread", {.result = kHandle});
  uint32_t id = kUnwritten;
  KivHandle thread = AnyHandle();
  CHECK_ARGUMENT(ctx, KivSdThreadCreate(ctx, nullptr, 0, 0, nullptr, &id, &thread));
  CHECK_ARGUMENT(ctx, KivSdThreadCreate(ctx, DoNothing, 0, 0, nullptr, nullptr, &thread));
  CHECK_ARGUMENT(ctx, KivSdThreadCreate(ctx, DoNothing, 0, 0, nullptr, &id, nullptr));
  EXPECT_TRUE(create.calls().empty());
}

// An operation, the system call that it makes, that call's result on failure, and the status.
struct Failing {
  const char* name;
  const char* function;
  uintptr_t result;
  std::function<uint32_t(KivSdContext*)> operation;
  uint32_t error;
  uint32_t status;
};

KivHandle handle = AnyHandle();
int32_t priority = 0;
uint32_t priorityClass = 0;

const Failing kFailings[] = {
    {"ThreadDelete", "CloseHandle", 0, [](auto ctx) { return KivSdThreadDelete(ctx, &handle); },
     kError, KIV_ST_THREAD_DELETE},
    {"ThreadHandleGet", "DuplicateHandle", 0,
     [](auto ctx) { return KivSdThreadHandleGet(ctx, &handle); }, kError, KIV_ST_THREAD_HANDLE},
    {"ThreadPriorityGet", "GetThreadPriority", 2147483647,
     [](auto ctx) { return KivSdThreadPriorityGet(ctx, &handle, &priority); }, kError,
     KIV_ST_THREAD_PRIORITY_GET},
    {"ThreadPrioritySet", "SetThreadPriority", 0,
     [](auto ctx) { return KivSdThreadPrioritySet(ctx, &handle, 1); }, kError,
     KIV_ST_THREAD_PRIORITY_SET},
    {"ProcessDelete, denied", "TerminateProcess", 0,
     [](auto ctx) { return KivSdProcessDelete(ctx, handle); }, kOsAccessDenied,
     KIV_ST_PROCESS_DELETE},
    {"ProcessDelete", "TerminateProcess", 0,
     [](auto ctx) { return KivSdProcessDelete(ctx, handle); }, kError, KIV_ST_OK},
    {"ProcessDelete, near", "TerminateProcess", 0,
     [](auto ctx) { return KivSdProcessDelete(ctx, handle); }, kOsAccessDenied + 1, KIV_ST_OK},
    {"ProcessPriorityGet", "GetPriorityClass", 0,
     [](auto ctx) { return KivSdProcessPriorityGet(ctx, &priorityClass); }, kError,
     KIV_ST_PROCESS_PRIORITY_GET},
    {"ProcessPrioritySet", "SetPriorityClass", 0,
     [](auto ctx) { return KivSdProcessPrioritySet(ctx, handle, 1, 0x20); }, kError,
     KIV_ST_PROCESS_PRIORITY_SET},
    {"ThreadSuspend", "SuspendThread", 0xFFFFFFFF,
     [](auto ctx) { return KivSdThreadSuspend(ctx, &handle); }, kError, KIV_ST_OK},
    {"ThreadResume", "ResumeThread", 0xFFFFFFFF,
     [](auto ctx) { return KivSdThreadResume(ctx, &handle); }, kError, KIV_ST_OK},
    {"ThreadJoin", "WaitForSingleObject", 0xFFFFFFFF,
     [](auto ctx) { return KivSdThreadJoin(ctx, &handle); }, kError, KIV_ST_OK},
};

// Whether the operation ignores the result of the call and records no error.
bool IsIgnored(const Failing& failing) {
  return failing.status == KIV_ST_OK && std::string(failing.function) != "TerminateProcess";
}

TEST(ThreadsAndProcesses, ReportTheSystemsErrorUnlessItIsIgnored) {
  Context ctx;
  for (const Failing& failing : kFailings) {
    SCOPED_TRACE(failing.name);
    handle = AnyHandle();
    priority = 77;
    priorityClass = 77;
    const ScriptedImport call(failing.function, {.result = failing.result, .error = failing.error});
    CHECK_OUTCOME(ctx, failing.operation(ctx), failing.status,
                  IsIgnored(failing) ? 0u : failing.error);
    EXPECT_EQ(failing.operation(nullptr), failing.status);
    EXPECT_EQ(call.calls().size(), 2u);
    EXPECT_EQ(handle, AnyHandle());
    EXPECT_EQ(priority, 77);
    EXPECT_EQ(priorityClass, 77u);
  }
}

TEST(ThreadsAndProcesses, RecordNoErrorOfASuccessfulCall) {
  Context ctx;
  for (const Failing& failing : kFailings) {
    SCOPED_TRACE(failing.name);
    handle = AnyHandle();
    const uintptr_t success = std::string(failing.name) == "ThreadJoin" ? 0 : 1;
    const ScriptedImport call(failing.function, {.result = success, .error = failing.error});
    CHECK_OK(ctx, failing.operation(ctx));
  }
}

TEST(Thread, OperationsUseTheHandleOrTheCallingThread) {
  using Operation = std::function<uint32_t(KivHandle*)>;
  int32_t read = 0;
  const struct {
    const char* function;
    Operation operation;
  } operations[] = {
      {"SuspendThread", [](KivHandle* thread) { return KivSdThreadSuspend(nullptr, thread); }},
      {"WaitForSingleObject", [](KivHandle* thread) { return KivSdThreadJoin(nullptr, thread); }},
      {"GetThreadPriority",
       [&read](KivHandle* thread) { return KivSdThreadPriorityGet(nullptr, thread, &read); }},
      {"SetThreadPriority",
       [](KivHandle* thread) { return KivSdThreadPrioritySet(nullptr, thread, -7); }},
  };
  for (const auto& [function, operation] : operations) {
    SCOPED_TRACE(function);
    const ScriptedImport call(function, {.result = 1});
    KivHandle thread = AnyHandle();
    EXPECT_EQ(operation(&thread), KIV_ST_OK);
    EXPECT_EQ(operation(nullptr), KIV_ST_OK);
    ASSERT_EQ(call.calls().size(), 2u);
    EXPECT_EQ(call.calls()[0][0], kHandle);
    EXPECT_EQ(call.calls()[1][0], kCallingThread);
    const std::string name = function;
    if (name == "WaitForSingleObject") {
      EXPECT_EQ(Low(call.calls()[0][1]), kForEver);
    }
    if (name == "SetThreadPriority") {
      EXPECT_EQ(Low(call.calls()[0][1]), static_cast<uint32_t>(-7));
    }
  }
}

TEST(Thread, PriorityIsTheSystemsNumber) {
  Context ctx;
  for (const int32_t systems : {0, -15, 15, 31, INT32_MIN, INT32_MAX - 1}) {
    const ScriptedImport get("GetThreadPriority",
                             {.result = static_cast<uint32_t>(systems), .error = kError});
    int32_t read = 77;
    CHECK_OK(ctx, KivSdThreadPriorityGet(ctx, nullptr, &read));
    EXPECT_EQ(read, systems);
  }
}

TEST(Thread, HandleIsADuplicateForThisProcessWithTheSameAccess) {
  const ScriptedImport duplicate("DuplicateHandle", {.result = 1});
  KivHandle made = nullptr;
  EXPECT_EQ(KivSdThreadHandleGet(nullptr, &made), KIV_ST_OK);
  ASSERT_EQ(duplicate.calls().size(), 1u);
  const ScriptedImport::Arguments& call = duplicate.calls()[0];
  EXPECT_EQ(call[0], kCallingProcess);
  EXPECT_EQ(call[1], kCallingThread);
  EXPECT_EQ(call[2], kCallingProcess);
  EXPECT_EQ(Low(call[5]), 0u) << "not inheritable";
  EXPECT_EQ(Low(call[6]), kSameAccess);
}

#ifdef _WIN32  // elsewhere the call is compiled into the library
TEST(Thread, YieldGivesUpTheRestOfTheTimeSlice) {
  Context ctx;
  const ScriptedImport sleep("Sleep", {.error = kError});
  CHECK_OK(ctx, KivSdThreadYield(ctx));
  ASSERT_EQ(sleep.calls().size(), 1u);
  EXPECT_EQ(Low(sleep.calls()[0][0]), 0u);
}
#endif

TEST(Thread, ResumeOfNullMakesNoSystemCall) {
  Context ctx;
  const ScriptedImport resume("ResumeThread", {.result = 1});
  CHECK_ARGUMENT(ctx, KivSdThreadResume(ctx, nullptr));
  EXPECT_TRUE(resume.calls().empty());
}

// ---- Processes ----

TEST(Process, DeleteUsesExitCodeZero) {
  const ScriptedImport terminate("TerminateProcess", {.result = 1});
  EXPECT_EQ(KivSdProcessDelete(nullptr, AnyHandle()), KIV_ST_OK);
  ASSERT_EQ(terminate.calls().size(), 1u);
  EXPECT_EQ(terminate.calls()[0][0], kHandle);
  EXPECT_EQ(Low(terminate.calls()[0][1]), 0u);
}

TEST(Process, CheckAliveDoesNotWaitAndRecordsTheWaitsResult) {
  Context ctx;
  for (const uint32_t result : {0u, 128u, 1u, 259u, 0xFFFFFFFFu}) {
    const ScriptedImport wait("WaitForSingleObject", {.result = result, .error = kError});
    CHECK_OUTCOME(ctx, KivSdProcessCheckAlive(ctx, AnyHandle()), KIV_ST_PROCESS_ALIVE, result);
    ASSERT_EQ(wait.calls().size(), 1u);
    EXPECT_EQ(wait.calls()[0][0], kHandle);
    EXPECT_EQ(Low(wait.calls()[0][1]), 0u);
  }
  const ScriptedImport wait("WaitForSingleObject", {.result = 258, .error = kError});
  CHECK_OK(ctx, KivSdProcessCheckAlive(ctx, AnyHandle()));
}

TEST(Process, PriorityClassOfTheCallingProcessIsRead) {
  Context ctx;
  const ScriptedImport get("GetPriorityClass", {.result = 0x8000, .error = kError});
  uint32_t read = 0;
  CHECK_OK(ctx, KivSdProcessPriorityGet(ctx, &read));
  EXPECT_EQ(read, 0x8000u);
  CHECK_ARGUMENT(ctx, KivSdProcessPriorityGet(ctx, nullptr));
  ASSERT_EQ(get.calls().size(), 1u);
  EXPECT_EQ(get.calls()[0][0], kCallingProcess);
}

TEST(Process, PriorityClassIsSetOnTheHandleOrOnTheCallingProcess) {
  const struct {
    KivHandle process;
    int32_t id;
    uintptr_t handedOn;
  } cases[] = {{AnyHandle(), 12, kHandle},     {AnyHandle(), 0, kHandle},
               {AnyHandle(), -2, kHandle},     {AnyHandle(), -1, kCallingProcess},
               {nullptr, 12, kCallingProcess}, {nullptr, -1, kCallingProcess}};
  for (const auto& [process, id, handedOn] : cases) {
    const ScriptedImport set("SetPriorityClass", {.result = 1});
    EXPECT_EQ(KivSdProcessPrioritySet(nullptr, process, id, 0xDEADBEEF), KIV_ST_OK);
    ASSERT_EQ(set.calls().size(), 1u);
    EXPECT_EQ(set.calls()[0][0], handedOn);
    EXPECT_EQ(Low(set.calls()[0][1]), 0xDEADBEEFu);
  }
}

}  // namespace
