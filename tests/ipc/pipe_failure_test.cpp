// Statuses, records and outputs of the pipe operations when the system's calls fail, and leaks.
#include <gtest/gtest.h>

#include "kivsdu/kivsdu.h"
#include "support/context.h"
#include "support/heap_watch.h"
#include "support/import_patch.h"
#include "support/os_errors.h"
#include "support/system_interface.h"

namespace {

using kiv::test::Context;
using kiv::test::HeapWatch;
using kiv::test::ImportPatch;
using kiv::test::ScriptedImport;

constexpr uint32_t kUntouched = 4711;
constexpr uint32_t kErrorAccessDenied = 5;
constexpr uint32_t kErrorNoMemory = 8;
constexpr uint32_t kErrorBrokenPipe = 109;
constexpr uint32_t kErrorNoData = kiv::test::kOsPipeClosing;
constexpr uint32_t kErrorMoreData = 234;
constexpr uint32_t kErrorOfFree = 7777;
const uintptr_t kInvalid = reinterpret_cast<uintptr_t>(INVALID_HANDLE_VALUE);

KivHandle Handle(uintptr_t value) { return reinterpret_cast<KivHandle>(value); }

uint32_t Create(KivSdContext* ctx, KivHandle* pipe) {
  return KivSdNamedPipeCreate(ctx, "name", pipe, PIPE_ACCESS_DUPLEX, 0, 1, 4096, 4096, 50);
}
uint32_t Open(KivSdContext* ctx, KivHandle* pipe) {
  return KivSdNamedPipeOpen(ctx, "server", "name", pipe, GENERIC_READ, 0, OPEN_EXISTING, 0);
}
uint32_t Wait(KivSdContext* ctx, KivHandle*) {
  return KivSdNamedPipeWait(ctx, "server", "name", 50);
}
uint32_t Connect(KivSdContext* ctx, KivHandle* pipe) { return KivSdNamedPipeConnect(ctx, pipe); }
uint32_t Disconnect(KivSdContext* ctx, KivHandle* pipe) {
  return KivSdNamedPipeDisconnect(ctx, pipe);
}
uint32_t Peek(KivSdContext* ctx, KivHandle* pipe) {
  return KivSdNamedPipePeek(ctx, pipe, 0, nullptr, nullptr, nullptr, nullptr);
}
uint32_t Make(KivSdContext* ctx, KivHandle* pipe) {
  KivHandle write = nullptr;
  return KivSdPipeCreate(ctx, pipe, &write, 0);
}
uint32_t Close(KivSdContext* ctx, KivHandle* pipe) { return KivSdPipeClose(ctx, pipe); }

struct Operation {
  const char* call;   // the system's function that the operation calls
  uintptr_t failure;  // result of that function on failure
  uint32_t (*run)(KivSdContext* ctx, KivHandle* pipe);
  uint32_t status;
};

// The operations that report a failure without an OS error as a success.
const Operation kForgiving[] = {
    {"CreateNamedPipeA", kInvalid, Create, KIV_ST_PIPE_CREATE_NAMED},
    {"CreateFileA", kInvalid, Open, KIV_ST_PIPE_OPEN},
    {"WaitNamedPipeA", 0, Wait, KIV_ST_PIPE_WAIT},
    {"DisconnectNamedPipe", 0, Disconnect, KIV_ST_PIPE_DISCONNECT},
    {"PeekNamedPipe", 0, Peek, KIV_ST_PIPE_PEEK},
    {"CreatePipe", 0, Make, KIV_ST_PIPE_CREATE},
    {"CloseHandle", 0, Close, KIV_ST_PIPE_CLOSE},
};

// ---- The system fails ----

TEST(PipeFailure, ReportsTheOperationsStatusAndTheSystemsError) {
  Context ctx;
  for (const Operation& operation : kForgiving) {
    SCOPED_TRACE(operation.call);
    for (const uint32_t error : {kErrorAccessDenied, 1u, 0xFFFFFFFFu}) {
      KivHandle pipe = Handle(8);
      const ScriptedImport failing(operation.call, {.result = operation.failure, .error = error});
      CHECK_OUTCOME(ctx, operation.run(ctx, &pipe), operation.status, error);
      EXPECT_EQ(operation.run(nullptr, &pipe), operation.status);
      EXPECT_EQ(failing.calls().size(), 2u);
    }
  }
}

TEST(PipeFailure, WithoutAnOsErrorIsReportedAsSuccess) {
  Context ctx;
  for (const Operation& operation : kForgiving) {
    SCOPED_TRACE(operation.call);
    KivHandle pipe = Handle(8);
    const ScriptedImport failing(operation.call, {.result = operation.failure, .error = 0});
    CHECK_OK(ctx, operation.run(ctx, &pipe));
    EXPECT_EQ(failing.calls().size(), 1u);
  }
}

TEST(PipeFailure, StoresTheInvalidHandle) {
  for (const uint32_t error : {0u, kErrorAccessDenied}) {
    for (const Operation& operation : {kForgiving[0], kForgiving[1]}) {
      SCOPED_TRACE(operation.call);
      KivHandle pipe = Handle(8);
      const ScriptedImport failing(operation.call, {.result = kInvalid, .error = error});
      static_cast<void>(operation.run(nullptr, &pipe));
      EXPECT_EQ(pipe, INVALID_HANDLE_VALUE);
    }
  }
}

TEST(PipeFailure, OfCreatingAPipeStoresNullForBothEnds) {
  for (const uint32_t error : {0u, kErrorAccessDenied}) {
    KivHandle read = Handle(8);
    KivHandle write = Handle(9);
    const ScriptedImport failing("CreatePipe", {.result = 0, .error = error});
    EXPECT_EQ(KivSdPipeCreate(nullptr, &read, &write, 0), error != 0 ? KIV_ST_PIPE_CREATE : 0);
    EXPECT_EQ(read, nullptr);
    EXPECT_EQ(write, nullptr);
  }
}

TEST(PipeFailure, IsNotReportedIfASuccessfulCallLeavesAnError) {
  Context ctx;
  for (const Operation& operation : kForgiving) {
    SCOPED_TRACE(operation.call);
    KivHandle pipe = Handle(8);
    const ScriptedImport succeeding(operation.call, {.result = 16, .error = kErrorAccessDenied});
    CHECK_OK(ctx, operation.run(ctx, &pipe));
  }
}

TEST(PipeFailure, OfClosingOrDisconnectingKeepsTheHandleVariable) {
  for (const uintptr_t result : {0u, 1u}) {
    KivHandle pipe = Handle(8);
    const ScriptedImport close("CloseHandle", {.result = result, .error = kErrorAccessDenied});
    const ScriptedImport disconnect("DisconnectNamedPipe", {.result = result, .error = 1});
    static_cast<void>(KivSdPipeClose(nullptr, &pipe));
    static_cast<void>(KivSdNamedPipeDisconnect(nullptr, &pipe));
    EXPECT_EQ(pipe, Handle(8));
    EXPECT_EQ(close.calls().size() + disconnect.calls().size(), 2u);
  }
}

TEST(PipeFailure, OfAPeekWritesNoOutput) {
  for (const uint32_t error : {0u, kErrorAccessDenied}) {
    KivHandle pipe = Handle(8);
    uint32_t counts[3] = {kUntouched, kUntouched, kUntouched};
    const ScriptedImport failing("PeekNamedPipe", {.result = 0, .error = error});
    static_cast<void>(
        KivSdNamedPipePeek(nullptr, &pipe, 0, nullptr, &counts[0], &counts[1], &counts[2]));
    for (const uint32_t count : counts) EXPECT_EQ(count, kUntouched);
  }
}

TEST(PipeConnectFailure, HasExactlyFourOutcomes) {
  struct {
    uintptr_t result;
    uint32_t error;
    uint32_t status;
    uint32_t recorded;
  } const outcomes[] = {
      {1, 0, KIV_ST_PIPE_CONNECT, 0},
      {1, ERROR_PIPE_CONNECTED, KIV_ST_PIPE_CONNECT, 0},
      {0, ERROR_PIPE_CONNECTED, KIV_ST_OK, ERROR_PIPE_CONNECTED},
      {0, ERROR_PIPE_CONNECTED - 1, KIV_ST_PIPE_CONNECT, ERROR_PIPE_CONNECTED - 1},
      {0, ERROR_PIPE_LISTENING, KIV_ST_PIPE_CONNECT, ERROR_PIPE_LISTENING},
      {0, kErrorNoData, KIV_ST_PIPE_CONNECT, kErrorNoData},
      {0, 0, KIV_ST_PIPE_CONNECT, 0},
  };
  Context ctx;
  KivHandle pipe = Handle(8);
  for (const auto& outcome : outcomes) {
    SCOPED_TRACE(outcome.error);
    const ScriptedImport call("ConnectNamedPipe",
                              {.result = outcome.result, .error = outcome.error});
    CHECK_OUTCOME(ctx, Connect(ctx, &pipe), outcome.status, outcome.recorded);
    EXPECT_EQ(Connect(nullptr, &pipe), outcome.status);
    EXPECT_EQ(call.calls().size(), 2u);
  }
}

// ---- Reading and writing ----

// A transfer that stores a count of three bytes and then fails with this error.
uint32_t transferError;

BOOL WINAPI FailAfterThree(HANDLE, void*, DWORD, DWORD* count, OVERLAPPED*) {
  *count = 3;
  SetLastError(transferError);
  return FALSE;
}

TEST(PipeReadFailure, DistinguishesAClosingPipeFromOtherErrors) {
  Context ctx;
  KivHandle pipe = Handle(8);
  char buffer[8];
  uint32_t count = kUntouched;
  const ImportPatch patch("ReadFile", reinterpret_cast<void*>(&FailAfterThree));

  transferError = kErrorNoData;
  CHECK_OUTCOME(ctx, KivSdPipeRead(ctx, &pipe, buffer, 8, &count), KIV_ST_PIPE_CLOSED,
                kErrorNoData);
  EXPECT_EQ(count, 0u);
  EXPECT_EQ(KivSdPipeRead(nullptr, &pipe, buffer, 8, &count), KIV_ST_PIPE_CLOSED);

  for (const uint32_t error :
       {0u, kErrorBrokenPipe, kErrorMoreData, kErrorNoData - 1, kErrorNoData + 1}) {
    transferError = error;
    count = kUntouched;
    CHECK_OUTCOME(ctx, KivSdPipeRead(ctx, &pipe, buffer, 8, &count), KIV_ST_PIPE_READ, error);
    EXPECT_EQ(count, 3u);
    EXPECT_EQ(KivSdPipeRead(nullptr, &pipe, buffer, 8, &count), KIV_ST_PIPE_READ);
  }
}

TEST(PipeWriteFailure, StoresACountOfZeroAndSucceedsWithoutAnOsError) {
  Context ctx;
  KivHandle pipe = Handle(8);
  uint32_t count = kUntouched;
  const ImportPatch patch("WriteFile", reinterpret_cast<void*>(&FailAfterThree));
  for (const uint32_t error : {kErrorNoData, kErrorBrokenPipe, 1u}) {
    transferError = error;
    count = kUntouched;
    CHECK_OUTCOME(ctx, KivSdPipeWrite(ctx, &pipe, "12345678", 8, &count), KIV_ST_PIPE_WRITE, error);
    EXPECT_EQ(count, 0u);
  }
  transferError = 0;
  count = kUntouched;
  CHECK_OK(ctx, KivSdPipeWrite(ctx, &pipe, "12345678", 8, &count));
  EXPECT_EQ(count, 0u);
}

TEST(PipeFailure, OfTheArgumentsMakesNoCallOfTheSystem) {
  Context ctx;
  KivHandle none = nullptr;
  KivHandle pipe = Handle(8);
  char byte = 0;
  uint32_t count = 0;
  const ScriptedImport write("WriteFile", {.result = 1});
  const ScriptedImport read("ReadFile", {.result = 1});
  const ScriptedImport make("CreatePipe", {.result = 1});
  const ScriptedImport close("CloseHandle", {.result = 1});
  const ScriptedImport file("CreateFileA", {.result = 1});
  CHECK_ARGUMENT(ctx, KivSdPipeWrite(ctx, &none, &byte, 1, &count));
  CHECK_ARGUMENT(ctx, KivSdPipeWrite(ctx, nullptr, &byte, 1, &count));
  CHECK_ARGUMENT(ctx, KivSdPipeWrite(ctx, &pipe, nullptr, 1, &count));
  CHECK_ARGUMENT(ctx, KivSdPipeRead(ctx, nullptr, &byte, 1, &count));
  CHECK_ARGUMENT(ctx, KivSdPipeRead(ctx, &pipe, &byte, 1, nullptr));
  CHECK_ARGUMENT(ctx, KivSdPipeCreate(ctx, &pipe, nullptr, 0));
  CHECK_ARGUMENT(ctx, KivSdPipeClose(ctx, nullptr));
  CHECK_ARGUMENT(ctx, KivSdNamedPipeOpen(ctx, "local", nullptr, &pipe, 0, 0, 0, 0));
  for (const ScriptedImport* call : {&write, &read, &make, &close, &file}) {
    EXPECT_TRUE(call->calls().empty());
  }
  // A read checks only the pointer; the system checks the handle.
  CHECK_OK(ctx, KivSdPipeRead(ctx, &none, &byte, 1, &count));
  ASSERT_EQ(read.calls().size(), 1u);
  EXPECT_EQ(read.calls()[0][0], 0u);
}

// ---- Memory ----

const Operation kWithPath[] = {kForgiving[0], kForgiving[1], kForgiving[2]};

TEST(PipeMemory, MakesNoSystemCallIfThePathCannotBeAllocated) {
  Context ctx;
  for (const Operation& operation : kWithPath) {
    SCOPED_TRACE(operation.call);
    KivHandle pipe = Handle(8);
    const ScriptedImport call(operation.call, {.result = 16});
    const HeapWatch heap(0, kErrorNoMemory);
    CHECK_OUTCOME(ctx, operation.run(ctx, &pipe), KIV_ST_OUT_OF_MEMORY, kErrorNoMemory);
    EXPECT_EQ(pipe, Handle(8));
    EXPECT_EQ(heap.sizes().size(), 1u);
    EXPECT_EQ(heap.live(), 0u);
    EXPECT_TRUE(call.calls().empty());
  }
}

TEST(PipeMemory, FreesThePathIfTheAccessListCannotBeAllocated) {
  Context ctx;
  KivHandle pipe = Handle(8);
  const ScriptedImport call("CreateNamedPipeA", {.result = 16});
  const HeapWatch heap(1, kErrorNoMemory);
  CHECK_OUTCOME(ctx, Create(ctx, &pipe), KIV_ST_OUT_OF_MEMORY, kErrorNoMemory);
  EXPECT_EQ(pipe, Handle(8));
  EXPECT_EQ(heap.sizes().size(), 2u);
  EXPECT_EQ(heap.live(), 0u);
  EXPECT_TRUE(call.calls().empty());
}

TEST(PipeMemory, IsFreedWhateverTheSystemReturns) {
  struct {
    bool fails;
    uint32_t error;
  } const answers[] = {{false, 0}, {true, kErrorAccessDenied}, {true, 0}};
  for (const Operation& operation : kWithPath) {
    SCOPED_TRACE(operation.call);
    for (const auto& answer : answers) {
      KivHandle pipe = Handle(8);
      const uintptr_t result = answer.fails ? operation.failure : 16;
      const ScriptedImport call(operation.call, {.result = result, .error = answer.error});
      const HeapWatch heap;
      static_cast<void>(operation.run(nullptr, &pipe));
      EXPECT_EQ(heap.sizes().size(), operation.run == Create ? 2u : 1u);
      EXPECT_EQ(heap.live(), 0u);
      EXPECT_EQ(call.calls().size(), 1u);
    }
  }
}

TEST(PipeMemory, ReportsTheErrorOfTheCallAndNotOfTheFree) {
  Context ctx;
  for (const Operation& operation : kWithPath) {
    SCOPED_TRACE(operation.call);
    KivHandle pipe = Handle(8);
    const HeapWatch heap(HeapWatch::kNever, 0, kErrorOfFree);
    {
      const ScriptedImport failing(operation.call,
                                   {.result = operation.failure, .error = kErrorAccessDenied});
      CHECK_OUTCOME(ctx, operation.run(ctx, &pipe), operation.status, kErrorAccessDenied);
    }
    const ScriptedImport errorless(operation.call, {.result = operation.failure, .error = 0});
    CHECK_OK(ctx, operation.run(ctx, &pipe));
  }
}

TEST(PipeMemory, IsFreedIfTheAccessListCannotBePrepared) {
  Context ctx;
  for (const char* step : {"InitializeSecurityDescriptor", "SetSecurityDescriptorDacl"}) {
    SCOPED_TRACE(step);
    KivHandle pipe = Handle(8);
    const ScriptedImport failing(step, {.result = 0, .error = kErrorAccessDenied});
    const ScriptedImport call("CreateNamedPipeA", {.result = 16});
    const HeapWatch heap;
    CHECK_OUTCOME(ctx, Create(ctx, &pipe), KIV_ST_PIPE_CREATE_NAMED, kErrorAccessDenied);
    EXPECT_EQ(heap.live(), 0u);
    EXPECT_TRUE(call.calls().empty());
  }
}

}  // namespace
