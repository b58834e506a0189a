// Direct I/O when the system's calls fail: statuses, records and outputs; and the arguments that it
// passes to the system.
#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <vector>

#include "kivsdu/kivsdu.h"
#include "support/context.h"
#include "support/guard_watch.h"
#include "support/import_patch.h"
#include "support/last_error.h"
#include "support/os_errors.h"

namespace {

using kiv::test::Context;
using kiv::test::GuardWatch;
using kiv::test::ImportPatch;
using kiv::test::ScriptedImport;
using kiv::test::SetErrors;

constexpr uint32_t kUntouched = 4711;
constexpr uint32_t kErrorAccessDenied = 5;
constexpr uint32_t kErrorSharingViolation = kiv::test::kOsSharingViolation;
constexpr uint32_t kErrorEndOfFile = 38;
constexpr uint32_t kErrorDiskFull = kiv::test::kOsDiskFull;
constexpr uint32_t kErrorTransferPending = 997;
constexpr uint32_t kErrnoNoSpace = 28;
constexpr uint32_t kSignalled = 0;
constexpr uint32_t kAbandoned = 128;
constexpr uint32_t kTimedOut = 258;
constexpr uint32_t kWaitFailed = 0xFFFFFFFF;
constexpr uint32_t kErrnoBadDescriptor = 9;
constexpr uint32_t kBlockBytes = 8192;
constexpr uint32_t kHalfBlock = 4096;
constexpr uintptr_t kInvalid = static_cast<uintptr_t>(-1);
constexpr uintptr_t kAllBits32 = 0xFFFFFFFF;
constexpr uint32_t kFile = 0x80000040;  // the highest bit is sign-extended in the handle
constexpr uintptr_t kHandle = 0xFFFFFFFF80000040;
const KivHandle kEvent = reinterpret_cast<KivHandle>(0x88);

uint32_t Low(uintptr_t argument) { return static_cast<uint32_t>(argument); }

// ---- Opening, closing, removing ----

TEST(DirectIOOpen, PassesTheCallersWordsOnAndAddsUnbufferedAccess) {
  Context ctx;
  const ScriptedImport create("CreateFileA", {.result = kHandle});
  const char path[] = "path";
  uint32_t file = 0;
  int ignored = 0;
  CHECK_OK(ctx, KivSdDirectIOFileOpen(ctx, path, 0xC0000000, 3, 4, &ignored, 0x40000001, &file));
  EXPECT_EQ(file, kFile);
  ASSERT_EQ(create.calls().size(), 1u);
  const ScriptedImport::Arguments& asked = create.calls()[0];
  EXPECT_EQ(asked[0], reinterpret_cast<uintptr_t>(path));
  EXPECT_EQ(Low(asked[1]), 0xC0000000u);
  EXPECT_EQ(Low(asked[2]), 3u);
  EXPECT_EQ(asked[3], 0u);
  EXPECT_EQ(Low(asked[4]), 4u);
  EXPECT_EQ(Low(asked[5]), 0x60000001u);
  EXPECT_EQ(asked[6], 0u);

  for (const int mode : {1, 2, 0x80, 0xFF}) {
    const GuardWatch failover(static_cast<uint8_t>(mode));
    CHECK_OK(ctx, KivSdDirectIOFileOpen(ctx, path, 0xC0000000, 3, 4, nullptr, 0x20000000, &file));
    EXPECT_EQ(Low(create.calls().back()[2]), 7u);
    EXPECT_EQ(Low(create.calls().back()[5]), 0x20000000u);
  }
}

TEST(DirectIOOpen, DistinguishesASharingViolationFromOtherErrors) {
  struct {
    uint32_t error;
    uint32_t status;
  } const answers[] = {{kErrorSharingViolation, KIV_ST_FILE_SHARING},
                       {kErrorSharingViolation - 1, KIV_ST_FILE_CREATE},
                       {kErrorSharingViolation + 1, KIV_ST_FILE_CREATE},
                       {kErrorAccessDenied, KIV_ST_FILE_CREATE},
                       {kErrorDiskFull, KIV_ST_FILE_CREATE}};
  Context ctx;
  for (const auto& answer : answers) {
    SCOPED_TRACE(answer.error);
    uint32_t file[2] = {kUntouched, kUntouched};
    const auto open = [&](KivSdContext* record) {
      return KivSdDirectIOFileOpen(record, "path", 0, 0, 3, nullptr, 0, &file[0]);
    };
    const ScriptedImport create("CreateFileA", {.result = kInvalid, .error = answer.error});
    CHECK_OUTCOME(ctx, open(ctx), answer.status, answer.error);
    EXPECT_EQ(file[0], KIV_DIRECTIO_NONE);
    EXPECT_EQ(file[1], kUntouched);
    EXPECT_EQ(open(nullptr), answer.status);
  }
}

TEST(DirectIOOpen, IgnoresTheErrorThatASuccessfulCallLeaves) {
  Context ctx;
  const ScriptedImport create("CreateFileA", {.result = 8, .error = kErrorSharingViolation});
  uint32_t file = 0;
  CHECK_OK(ctx, KivSdDirectIOFileOpen(ctx, "path", 0, 0, 3, nullptr, 0, &file));
  EXPECT_EQ(file, 8u);
}

TEST(DirectIOCreate, OpensForWritingAndCloses) {
  Context ctx;
  const ScriptedImport create("CreateFileA", {.result = 0x40});
  const ScriptedImport close("CloseHandle", {.result = 1});
  const char path[] = "path";
  CHECK_OK(ctx, KivSdDirectIOFileCreate(ctx, path));
  ASSERT_EQ(create.calls().size(), 1u);
  const ScriptedImport::Arguments& asked = create.calls()[0];
  EXPECT_EQ(asked[0], reinterpret_cast<uintptr_t>(path));
  EXPECT_EQ(Low(asked[1]), 0x40000000u);
  EXPECT_EQ(Low(asked[2]), 0u);
  EXPECT_EQ(asked[3], 0u);
  EXPECT_EQ(Low(asked[4]), 4u);
  EXPECT_EQ(Low(asked[5]), 0x20000000u);
  ASSERT_EQ(close.calls().size(), 1u);
  EXPECT_EQ(close.calls()[0][0], 0x40u);

  for (const int mode : {1, 2, 0x80, 0xFF}) {
    const GuardWatch failover(static_cast<uint8_t>(mode));
    CHECK_OK(ctx, KivSdDirectIOFileCreate(ctx, path));
    EXPECT_EQ(Low(create.calls().back()[2]), 7u);
  }
}

TEST(DirectIOCreate, ClosesNothingIfTheOpenFails) {
  Context ctx;
  for (const uint32_t error : {kErrorAccessDenied, kErrorSharingViolation}) {
    const ScriptedImport create("CreateFileA", {.result = kInvalid, .error = error});
    const ScriptedImport close("CloseHandle", {.result = 1});
    CHECK_OUTCOME(ctx, KivSdDirectIOFileCreate(ctx, "path"), KIV_ST_FILE_CREATE, error);
    EXPECT_EQ(KivSdDirectIOFileCreate(nullptr, "path"), KIV_ST_FILE_CREATE);
    EXPECT_TRUE(close.calls().empty());
  }
}

TEST(DirectIOCreate, ReportsAFailedCloseAsSuch) {
  Context ctx;
  const ScriptedImport create("CreateFileA", {.result = 0x40});
  const ScriptedImport close("CloseHandle", {.result = 0, .error = kErrorAccessDenied});
  CHECK_OUTCOME(ctx, KivSdDirectIOFileCreate(ctx, "path"), KIV_ST_FILE_CLOSE, kErrorAccessDenied);
}

// ---- Operations with one call of the system and one output ----

struct Operation {
  const char* call;   // the system's function that the operation calls
  uintptr_t failure;  // result of that function on failure
  std::function<uint32_t(KivSdContext*, uint32_t* out)> run;
  uint32_t status;
  uint32_t out;   // value of the output after a failure
  bool onHandle;  // whether the function's first argument is the file
};

const Operation kOperations[] = {
    {"CloseHandle", 0,
     [](KivSdContext* ctx, uint32_t*) { return KivSdDirectIOFileClose(ctx, kFile); },
     KIV_ST_FILE_CLOSE, kUntouched, true},
    {"DeleteFileA", 0,
     [](KivSdContext* ctx, uint32_t*) { return KivSdDirectIOFileRemove(ctx, "path"); },
     KIV_ST_FILE_REMOVE, kUntouched, false},
    {"SetFilePointer", kAllBits32,
     [](KivSdContext* ctx, uint32_t* out) {
       return KivSdDirectIOFilePointerSet(ctx, kFile, 5, 1, out);
     },
     KIV_ST_DIRECT_POINTER_SET, 0, true},
    {"SetFilePointer", kAllBits32,
     [](KivSdContext* ctx, uint32_t* out) { return KivSdDirectIOFilePointerGet(ctx, kFile, out); },
     KIV_ST_DIRECT_POINTER_GET, 0, true},
    {"GetFileSize", kAllBits32,
     [](KivSdContext* ctx, uint32_t* out) { return KivSdDirectIOFileSize(ctx, kFile, out); },
     KIV_ST_FILE_LENGTH, 0, true},
    {"SetFilePointer", kAllBits32,
     [](KivSdContext* ctx, uint32_t* out) {
       return KivSdDirectIOFileSetEndOfFile(ctx, kFile, 5, out);
     },
     KIV_ST_DIRECT_POINTER_SET, 0, true},
};

TEST(DirectIOFailure, ReportsTheOperationsStatusAndTheSystemsError) {
  Context ctx;
  for (const Operation& operation : kOperations) {
    SCOPED_TRACE(testing::Message() << operation.call << " " << operation.status);
    for (const uint32_t error : {kErrorAccessDenied, 0u, kErrorDiskFull, kErrorEndOfFile}) {
      uint32_t out[2] = {kUntouched, kUntouched};
      const ScriptedImport failing(operation.call, {.result = operation.failure, .error = error});
      CHECK_OUTCOME(ctx, operation.run(ctx, &out[0]), operation.status, error);
      EXPECT_EQ(out[0], operation.out);
      EXPECT_EQ(out[1], kUntouched);
      EXPECT_EQ(operation.run(nullptr, &out[0]), operation.status);
      ASSERT_EQ(failing.calls().size(), 2u);
      if (operation.onHandle) {
        EXPECT_EQ(failing.calls()[0][0], kHandle);
      }
    }
  }
}

TEST(DirectIOFailure, OfMovingThePositionLeavesTheEndUnchanged) {
  const ScriptedImport move("SetFilePointer", {.result = kAllBits32, .error = kErrorAccessDenied});
  const ScriptedImport end("SetEndOfFile", {.result = 1});
  uint32_t size = kUntouched;
  EXPECT_EQ(KivSdDirectIOFileSetEndOfFile(nullptr, kFile, 5, &size), KIV_ST_DIRECT_POINTER_SET);
  EXPECT_TRUE(end.calls().empty());
}

TEST(DirectIOFailure, OfSettingTheEndHasItsOwnStatus) {
  Context ctx;
  const ScriptedImport move("SetFilePointer", {.result = 5 * kBlockBytes});
  for (const uint32_t error : {kErrorAccessDenied, kErrorDiskFull}) {
    const ScriptedImport end("SetEndOfFile", {.result = 0, .error = error});
    uint32_t size = kUntouched;
    CHECK_OUTCOME(ctx, KivSdDirectIOFileSetEndOfFile(ctx, kFile, 5, &size), KIV_ST_DIRECT_SET_END,
                  error);
    EXPECT_EQ(size, 0u);
    EXPECT_EQ(end.calls()[0][0], kHandle);
  }
}

TEST(DirectIOFile, PassesMovesInBytesWithoutAHighPart) {
  Context ctx;
  const ScriptedImport move("SetFilePointer", {.result = 3 * kBlockBytes + 1});
  const ScriptedImport end("SetEndOfFile", {.result = 1});
  uint32_t out = 0;
  CHECK_OK(ctx, KivSdDirectIOFilePointerSet(ctx, kFile, 5, 2, &out));
  EXPECT_EQ(out, 3u);
  CHECK_OK(ctx, KivSdDirectIOFilePointerGet(ctx, kFile, &out));
  EXPECT_EQ(out, 3u);
  CHECK_OK(ctx, KivSdDirectIOFileSetEndOfFile(ctx, kFile, 7, &out));
  EXPECT_EQ(out, 3u) << "the position that the system returned";
  const uint32_t asked[][2] = {{5 * kBlockBytes, 2}, {0, 1}, {7 * kBlockBytes, 0}};
  ASSERT_EQ(move.calls().size(), 3u);
  for (size_t i = 0; i < 3; ++i) {
    SCOPED_TRACE(i);
    EXPECT_EQ(move.calls()[i][0], kHandle);
    EXPECT_EQ(Low(move.calls()[i][1]), asked[i][0]);
    EXPECT_EQ(move.calls()[i][2], 0u);
    EXPECT_EQ(Low(move.calls()[i][3]), asked[i][1]);
  }
}

TEST(DirectIOFile, PassesUnknownMoveMethodsToTheSystem) {
  Context ctx;
  for (const uint32_t method : {3u, 4u, 0x80000000u, 0xFFFFFFFFu}) {
    const ScriptedImport move("SetFilePointer", {.result = kBlockBytes});
    uint32_t out = kUntouched;
    CHECK_OK(ctx, KivSdDirectIOFilePointerSet(ctx, kFile, 5, method, &out));
    EXPECT_EQ(out, 1u);
    ASSERT_EQ(move.calls().size(), 1u);
    EXPECT_EQ(Low(move.calls()[0][1]), 5 * kBlockBytes);
    EXPECT_EQ(Low(move.calls()[0][3]), method);
  }
}

TEST(DirectIOFile, RequestsTheSizeWithoutAHighPart) {
  Context ctx;
  const ScriptedImport size("GetFileSize", {.result = 0xFFFFFFFE});
  uint32_t blocks = 0;
  CHECK_OK(ctx, KivSdDirectIOFileSize(ctx, kFile, &blocks));
  EXPECT_EQ(blocks, 524287u);
  EXPECT_EQ(size.calls()[0][1], 0u);
}

TEST(DirectIOFile, ChangingTheSizeReportsAFullDisk) {
  struct {
    uint32_t error;
    uint32_t status;
  } const answers[] = {{kErrnoNoSpace, KIV_ST_DISK_FULL},
                       {kErrnoNoSpace - 1, KIV_ST_DIRECT_SET_END},
                       {kErrnoBadDescriptor, KIV_ST_DIRECT_SET_END},
                       {112, KIV_ST_DIRECT_SET_END}};
  Context ctx;
  for (const auto& answer : answers) {
    SCOPED_TRACE(answer.error);
    uint32_t size = kUntouched;
    const ScriptedImport change("_chsize", {.result = kAllBits32, .error = answer.error});
    CHECK_OUTCOME(ctx, KivSdDirectIOFileChangeSize(ctx, 3, 9, &size), answer.status, answer.error);
    EXPECT_EQ(size, kUntouched);
    EXPECT_EQ(KivSdDirectIOFileChangeSize(nullptr, 3, 9, &size), answer.status);
    EXPECT_EQ(Low(change.calls()[0][0]), 3u);
    EXPECT_EQ(Low(change.calls()[0][1]), 9 * kBlockBytes);
  }
}

// ---- Transfers ----

// Results of the system's calls.
constexpr int32_t kYes = 1;
constexpr int32_t kNo = 0;

// The results of the stubs of ReadFile, WriteFile and GetOverlappedResult.
struct Answer {
  int32_t result;
  uint32_t error;
  uint32_t bytes;
};
Answer answer;

struct Asked {
  void* file;
  const void* buffer;
  uint32_t bytes;
  KivSdNoWaitCb* record;
  KivSdNoWaitCb content;
};
std::vector<Asked> asked;

int32_t Transfer(void* file, const void* buffer, uint32_t bytes, uint32_t* count,
                 KivSdNoWaitCb* record) {
  asked.push_back({file, buffer, bytes, record, record != nullptr ? *record : KivSdNoWaitCb{}});
  *count = answer.bytes;
  SetErrors(0, answer.error);
  return answer.result;
}

int32_t Outcome(void* file, KivSdNoWaitCb* record, uint32_t* count, int32_t wait) {
  asked.push_back({file, nullptr, static_cast<uint32_t>(wait), record, *record});
  *count = answer.bytes;
  SetErrors(0, answer.error);
  return answer.result;
}

// Redirects the DLL's transfers to the stubs above.
class Transfers {
 public:
  Transfers() { asked.clear(); }

 private:
  ImportPatch read_{"ReadFile", reinterpret_cast<void*>(&Transfer)};
  ImportPatch write_{"WriteFile", reinterpret_cast<void*>(&Transfer)};
  ImportPatch outcome_{"GetOverlappedResult", reinterpret_cast<void*>(&Outcome)};
};

struct Case {
  Answer answer;
  uint32_t status;
  uint32_t blocks;
};

constexpr uint32_t kTwoAndAHalf = 2 * kBlockBytes + kHalfBlock;

using Run = std::function<uint32_t(KivSdContext*, uint32_t* count)>;

void ExpectCases(const std::vector<Case>& cases, const Run& run) {
  Context ctx;
  for (const Case& each : cases) {
    SCOPED_TRACE(testing::Message() << each.answer.error << " after " << each.answer.bytes);
    answer = each.answer;
    uint32_t count[2] = {kUntouched, kUntouched};
    CHECK_OUTCOME(ctx, run(ctx, &count[0]), each.status,
                  each.answer.result != 0 ? 0 : each.answer.error);
    EXPECT_EQ(count[0], each.blocks);
    EXPECT_EQ(count[1], kUntouched);
    EXPECT_EQ(run(nullptr, &count[0]), each.status);
  }
}

// Results of a read. Only the end-of-file error has its own status and rounds the count up;
// `failure` is the status of all other errors.
std::vector<Case> ReadCases(uint32_t failure) {
  return {
      {{kYes, 0, 3 * kBlockBytes}, KIV_ST_OK, 3},
      {{kYes, kErrorEndOfFile, kTwoAndAHalf}, KIV_ST_OK, 2},
      {{kNo, kErrorEndOfFile, kTwoAndAHalf}, KIV_ST_FILE_END, 3},
      {{kNo, kErrorEndOfFile, 2 * kBlockBytes}, KIV_ST_FILE_END, 2},
      {{kNo, kErrorEndOfFile, 1}, KIV_ST_FILE_END, 1},
      {{kNo, kErrorEndOfFile, 0}, KIV_ST_FILE_END, 0},
      {{kNo, kErrorEndOfFile, 0xFFFFFFFF}, KIV_ST_FILE_END, 524288},
      {{kNo, kErrorEndOfFile - 1, kTwoAndAHalf}, failure, 2},
      {{kNo, kErrorEndOfFile + 1, kTwoAndAHalf}, failure, 2},
      {{kNo, kErrorAccessDenied, kBlockBytes - 1}, failure, 0},
      {{kNo, kErrorDiskFull, kTwoAndAHalf}, failure, 2},
  };
}

std::vector<Case> WriteCases(uint32_t failure) {
  return {
      {{kYes, 0, 3 * kBlockBytes}, KIV_ST_OK, 3},
      {{kYes, kErrorDiskFull, kTwoAndAHalf}, KIV_ST_OK, 2},
      {{kNo, kErrorDiskFull, kTwoAndAHalf}, KIV_ST_DISK_FULL, 2},
      {{kNo, kErrorDiskFull, 0}, KIV_ST_DISK_FULL, 0},
      {{kNo, kErrorDiskFull - 1, kTwoAndAHalf}, failure, 2},
      {{kNo, kErrorDiskFull + 1, kTwoAndAHalf}, failure, 2},
      {{kNo, kErrorEndOfFile, kTwoAndAHalf}, failure, 2},
      {{kNo, kErrorAccessDenied, 0}, failure, 0},
  };
}

char buffer[1];  // only its address is used

KivSdNoWaitCb RecordWithEvent() { return {0, 0, kUntouched, kUntouched, kEvent}; }

TEST(DirectIORead, WithoutARecordMovesThePositionFirst) {
  const Transfers transfers;
  const ScriptedImport move("SetFilePointer", {.result = 0});
  answer = {kYes, 0, 3 * kBlockBytes};
  uint32_t count = kUntouched;
  EXPECT_EQ(KivSdDirectIOFileRead(nullptr, kFile, 11, buffer, 3, nullptr, &count), KIV_ST_OK);
  ASSERT_EQ(move.calls().size(), 1u);
  EXPECT_EQ(move.calls()[0][0], kHandle);
  EXPECT_EQ(Low(move.calls()[0][1]), 11 * kBlockBytes);
  EXPECT_EQ(move.calls()[0][2], 0u);
  EXPECT_EQ(Low(move.calls()[0][3]), 0u);
  ASSERT_EQ(asked.size(), 1u);
  EXPECT_EQ(reinterpret_cast<uintptr_t>(asked[0].file), kHandle);
  EXPECT_EQ(asked[0].buffer, buffer);
  EXPECT_EQ(asked[0].bytes, 3 * kBlockBytes);
  EXPECT_EQ(asked[0].record, nullptr);
}

TEST(DirectIORead, WithoutARecordHasTheStatusesOfAFileRead) {
  const Transfers transfers;
  const ScriptedImport move("SetFilePointer", {.result = 0});
  std::vector<Case> cases = ReadCases(KIV_ST_FILE_READ);
  cases.push_back({{kNo, kErrorTransferPending, kTwoAndAHalf}, KIV_ST_FILE_READ, 2});
  ExpectCases(cases, [](KivSdContext* ctx, uint32_t* count) {
    return KivSdDirectIOFileRead(ctx, kFile, 0, buffer, 3, nullptr, count);
  });
}

TEST(DirectIORead, ReadsNothingIfThePositionCannotBeMoved) {
  Context ctx;
  const Transfers transfers;
  answer = {kYes, 0, 3 * kBlockBytes};
  const ScriptedImport move("SetFilePointer", {.result = kAllBits32, .error = kErrorAccessDenied});
  uint32_t count = kUntouched;
  CHECK_OUTCOME(ctx, KivSdDirectIOFileRead(ctx, kFile, 0, buffer, 3, nullptr, &count),
                KIV_ST_DIRECT_POINTER_SET, kErrorAccessDenied);
  EXPECT_EQ(count, 0u);
  EXPECT_TRUE(asked.empty());
}

TEST(DirectIORead, WithARecordUsesTheRecordsOffset) {
  const Transfers transfers;
  const ScriptedImport move("SetFilePointer", {.result = 0});
  const ScriptedImport create("CreateEventA", {.result = 0x99});
  KivSdNoWaitCb record = RecordWithEvent();
  uint32_t count = kUntouched;
  answer = {kYes, 0, 3 * kBlockBytes};
  EXPECT_EQ(KivSdDirectIOFileRead(nullptr, kFile, 524290, buffer, 3, &record, &count), KIV_ST_OK);
  EXPECT_TRUE(move.calls().empty());
  EXPECT_TRUE(create.calls().empty()) << "the record has an event already";
  EXPECT_EQ(record.event, kEvent);
  ASSERT_EQ(asked.size(), 1u);
  EXPECT_EQ(reinterpret_cast<uintptr_t>(asked[0].file), kHandle);
  EXPECT_EQ(asked[0].buffer, buffer);
  EXPECT_EQ(asked[0].bytes, 3 * kBlockBytes);
  EXPECT_EQ(asked[0].record, &record);
  EXPECT_EQ(asked[0].content.offsetLow, 2 * kBlockBytes);
  EXPECT_EQ(asked[0].content.offsetHigh, 0u);
  EXPECT_EQ(asked[0].content.event, kEvent);
}

TEST(DirectIORead, WithARecordHasItsOwnStatuses) {
  const Transfers transfers;
  KivSdNoWaitCb record = RecordWithEvent();
  std::vector<Case> cases = ReadCases(KIV_ST_DIRECT_READ);
  cases.push_back({{kNo, kErrorTransferPending, kTwoAndAHalf}, KIV_ST_DIRECT_READ_PENDING, 0});
  cases.push_back({{kYes, kErrorTransferPending, kBlockBytes}, KIV_ST_OK, 1});
  ExpectCases(cases, [&](KivSdContext* ctx, uint32_t* count) {
    return KivSdDirectIOFileRead(ctx, kFile, 0, buffer, 3, &record, count);
  });
}

TEST(DirectIOWrite, WithoutARecordUsesALocalRecordWithoutAnEvent) {
  const Transfers transfers;
  const ScriptedImport move("SetFilePointer", {.result = 0});
  const ScriptedImport create("CreateEventA", {.result = 0x99});
  uint32_t count = kUntouched;
  answer = {kYes, 0, 3 * kBlockBytes};
  EXPECT_EQ(KivSdDirectIOFileWrite(nullptr, kFile, 524290, buffer, 3, nullptr, &count), KIV_ST_OK);
  EXPECT_EQ(count, 3u);
  EXPECT_TRUE(move.calls().empty());
  EXPECT_TRUE(create.calls().empty());
  ASSERT_EQ(asked.size(), 1u);
  EXPECT_EQ(reinterpret_cast<uintptr_t>(asked[0].file), kHandle);
  EXPECT_EQ(asked[0].buffer, buffer);
  EXPECT_EQ(asked[0].bytes, 3 * kBlockBytes);
  ASSERT_NE(asked[0].record, nullptr);
  EXPECT_EQ(asked[0].content.offsetLow, 2 * kBlockBytes);
  EXPECT_EQ(asked[0].content.offsetHigh, 0u);
  EXPECT_EQ(asked[0].content.event, nullptr);
}

TEST(DirectIOWrite, WithoutARecordHasTheStatusesOfAFileWriteAndMayBePending) {
  const Transfers transfers;
  std::vector<Case> cases = WriteCases(KIV_ST_FILE_WRITE);
  cases.push_back({{kNo, kErrorTransferPending, kTwoAndAHalf}, KIV_ST_DIRECT_WRITE_PENDING, 2});
  ExpectCases(cases, [](KivSdContext* ctx, uint32_t* count) {
    return KivSdDirectIOFileWrite(ctx, kFile, 0, buffer, 3, nullptr, count);
  });
}

TEST(DirectIOWrite, WithARecordUsesTheRecordsOffset) {
  const Transfers transfers;
  const ScriptedImport create("CreateEventA", {.result = 0x99});
  KivSdNoWaitCb record = RecordWithEvent();
  uint32_t count = kUntouched;
  answer = {kNo, kErrorTransferPending, 0};
  EXPECT_EQ(KivSdDirectIOFileWrite(nullptr, kFile, 11, buffer, 3, &record, &count),
            KIV_ST_DIRECT_WRITE_PENDING);
  EXPECT_TRUE(create.calls().empty()) << "the record has an event already";
  ASSERT_EQ(asked.size(), 1u);
  EXPECT_EQ(reinterpret_cast<uintptr_t>(asked[0].file), kHandle);
  EXPECT_EQ(asked[0].bytes, 3 * kBlockBytes);
  EXPECT_EQ(asked[0].record, &record);
  EXPECT_EQ(asked[0].content.offsetLow, 11 * kBlockBytes);
  EXPECT_EQ(asked[0].content.offsetHigh, 0u);
  EXPECT_EQ(asked[0].content.event, kEvent);
}

TEST(DirectIOWrite, WithARecordHasItsOwnStatuses) {
  const Transfers transfers;
  KivSdNoWaitCb record = RecordWithEvent();
  std::vector<Case> cases = WriteCases(KIV_ST_DIRECT_WRITE);
  cases.push_back({{kNo, kErrorTransferPending, kTwoAndAHalf}, KIV_ST_DIRECT_WRITE_PENDING, 0});
  cases.push_back({{kYes, kErrorTransferPending, kBlockBytes}, KIV_ST_OK, 1});
  ExpectCases(cases, [&](KivSdContext* ctx, uint32_t* count) {
    return KivSdDirectIOFileWrite(ctx, kFile, 0, buffer, 3, &record, count);
  });
}

const std::function<uint32_t(KivSdContext*, KivSdNoWaitCb*, uint32_t*)> kWithRecord[] = {
    [](KivSdContext* ctx, KivSdNoWaitCb* record, uint32_t* count) {
      return KivSdDirectIOFileRead(ctx, kFile, 2, buffer, 3, record, count);
    },
    [](KivSdContext* ctx, KivSdNoWaitCb* record, uint32_t* count) {
      return KivSdDirectIOFileWrite(ctx, kFile, 2, buffer, 3, record, count);
    },
};

TEST(DirectIOTransfer, GivesARecordAManualUnsignalledUnnamedEvent) {
  const Transfers transfers;
  answer = {kYes, 0, 3 * kBlockBytes};
  for (const auto& run : kWithRecord) {
    const ScriptedImport create("CreateEventA", {.result = 0x99});
    KivSdNoWaitCb record = {};
    uint32_t count = 0;
    EXPECT_EQ(run(nullptr, &record, &count), KIV_ST_OK);
    EXPECT_EQ(reinterpret_cast<uintptr_t>(record.event), 0x99u);
    ASSERT_EQ(create.calls().size(), 1u);
    EXPECT_EQ(create.calls()[0][0], 0u);
    EXPECT_EQ(Low(create.calls()[0][1]), 1u);
    EXPECT_EQ(Low(create.calls()[0][2]), 0u);
    EXPECT_EQ(create.calls()[0][3], 0u);
    EXPECT_EQ(asked.back().content.event, record.event);
  }
}

TEST(DirectIOTransfer, DoesNotStartIfTheEventCannotBeMade) {
  Context ctx;
  const Transfers transfers;
  answer = {kYes, 0, 3 * kBlockBytes};
  for (const auto& run : kWithRecord) {
    const ScriptedImport create("CreateEventA", {.result = 0, .error = kErrorAccessDenied});
    KivSdNoWaitCb record = {};
    uint32_t count = kUntouched;
    CHECK_OUTCOME(ctx, run(ctx, &record, &count), KIV_ST_EVENT_CREATE, kErrorAccessDenied);
    EXPECT_EQ(count, 0u);
    EXPECT_EQ(record.event, nullptr);
    EXPECT_EQ(record.offsetLow, 2 * kBlockBytes);
    EXPECT_TRUE(asked.empty());
  }
}

// ---- Collecting ----

TEST(DirectIOWait, WaitsForeverForTheEventAndThenReadsTheOutcomeWithoutWaiting) {
  const Transfers transfers;
  const ScriptedImport wait("WaitForSingleObject", {.result = kSignalled});
  const ScriptedImport reset("ResetEvent", {.result = 1});
  KivSdNoWaitCb record = RecordWithEvent();
  uint32_t count = kUntouched;
  answer = {kYes, 0, 3 * kBlockBytes};
  EXPECT_EQ(KivSdDirectIOWait(nullptr, kFile, &record, &count), KIV_ST_OK);
  EXPECT_EQ(wait.calls()[0][0], reinterpret_cast<uintptr_t>(kEvent));
  EXPECT_EQ(Low(wait.calls()[0][1]), 0xFFFFFFFFu);
  ASSERT_EQ(asked.size(), 1u);
  EXPECT_EQ(reinterpret_cast<uintptr_t>(asked[0].file), kHandle);
  EXPECT_EQ(asked[0].record, &record);
  EXPECT_EQ(asked[0].bytes, 0u) << "must not wait in GetOverlappedResult";
  ASSERT_EQ(reset.calls().size(), 1u);
  EXPECT_EQ(reset.calls()[0][0], reinterpret_cast<uintptr_t>(kEvent));
  EXPECT_EQ(record.event, kEvent);
}

const std::vector<Case>& CollectedCases() {
  static const std::vector<Case> cases = {
      {{kYes, kErrorEndOfFile, 3 * kBlockBytes}, KIV_ST_OK, 3},
      {{kYes, 0, kTwoAndAHalf}, KIV_ST_OK, 2},
      {{kNo, kErrorEndOfFile, kTwoAndAHalf}, KIV_ST_FILE_END, 3},
      {{kNo, kErrorEndOfFile, 0}, KIV_ST_FILE_END, 0},
      {{kNo, kErrorDiskFull, kTwoAndAHalf}, KIV_ST_DISK_FULL, 2},
      {{kNo, kErrorAccessDenied, kTwoAndAHalf}, KIV_ST_DIRECT_COMPLETION, 2},
      {{kNo, kErrorTransferPending, kTwoAndAHalf}, KIV_ST_DIRECT_COMPLETION, 2},
      {{kNo, 996, 0}, KIV_ST_DIRECT_COMPLETION, 0},
  };
  return cases;
}

TEST(DirectIOWait, ReportsTheTransfersOutcomeAndResetsTheEvent) {
  const Transfers transfers;
  const ScriptedImport wait("WaitForSingleObject", {.result = kSignalled});
  const ScriptedImport reset("ResetEvent", {.result = 1});
  KivSdNoWaitCb record = RecordWithEvent();
  ExpectCases(CollectedCases(), [&](KivSdContext* ctx, uint32_t* count) {
    return KivSdDirectIOWait(ctx, kFile, &record, count);
  });
  EXPECT_EQ(reset.calls().size(), 2 * CollectedCases().size());
}

TEST(DirectIOWait, ReportsAFailedResetInPlaceOfTheTransfersOutcome) {
  Context ctx;
  const Transfers transfers;
  const ScriptedImport wait("WaitForSingleObject", {.result = kSignalled});
  const ScriptedImport reset("ResetEvent", {.result = 0, .error = 6});
  KivSdNoWaitCb record = RecordWithEvent();
  for (const Case& each : CollectedCases()) {
    SCOPED_TRACE(each.answer.error);
    answer = each.answer;
    uint32_t count = kUntouched;
    CHECK_OUTCOME(ctx, KivSdDirectIOWait(ctx, kFile, &record, &count), KIV_ST_COMPLETION_RESET, 6u);
    EXPECT_EQ(count, each.blocks);
    EXPECT_EQ(KivSdDirectIOWait(nullptr, kFile, &record, &count), KIV_ST_COMPLETION_RESET);
  }
}

TEST(DirectIOWait, RecordsTheResultOfAFailedWaitAndChangesNothing) {
  struct {
    uint32_t result;
    uint32_t status;
  } const waits[] = {{kAbandoned, KIV_ST_DIRECT_WAIT_ABANDONED},
                     {kAbandoned + 1, KIV_ST_EVENT_WAIT},
                     {kTimedOut, KIV_ST_EVENT_WAIT},
                     {kWaitFailed, KIV_ST_EVENT_WAIT},
                     {1, KIV_ST_EVENT_WAIT}};
  Context ctx;
  const Transfers transfers;
  const ScriptedImport reset("ResetEvent", {.result = 1});
  KivSdNoWaitCb record = RecordWithEvent();
  answer = {kYes, 0, 3 * kBlockBytes};
  for (const auto& each : waits) {
    SCOPED_TRACE(each.result);
    const ScriptedImport wait("WaitForSingleObject",
                              {.result = each.result, .error = kErrorAccessDenied});
    uint32_t count = kUntouched;
    CHECK_OUTCOME(ctx, KivSdDirectIOWait(ctx, kFile, &record, &count), each.status, each.result);
    EXPECT_EQ(KivSdDirectIOWait(nullptr, kFile, &record, &count), each.status);
    EXPECT_EQ(count, kUntouched);
  }
  EXPECT_TRUE(asked.empty());
  EXPECT_TRUE(reset.calls().empty());
}

TEST(DirectIOWait, FailsForARecordWithoutAnEvent) {
  Context ctx;
  KivSdNoWaitCb record = {};
  uint32_t count = kUntouched;
  CHECK_OUTCOME(ctx, KivSdDirectIOWait(ctx, kFile, &record, &count), KIV_ST_EVENT_WAIT,
                0xFFFFFFFFu);
  EXPECT_EQ(count, kUntouched);
}

// ---- Arrays of records ----

// The scripted results of making or closing events, one for each call: an error, or 0 for success.
std::vector<uint32_t> turns;
std::vector<void*> handles;

void* MakeEventInTurn(void*, int32_t, int32_t, const char*) {
  const size_t turn = handles.size();
  handles.push_back(reinterpret_cast<void*>(0x100 + turn));
  if (turns[turn] == 0) return handles[turn];
  SetErrors(0, turns[turn]);
  return nullptr;
}

int32_t CloseInTurn(void* handle) {
  const size_t turn = handles.size();
  handles.push_back(handle);
  SetErrors(0, turns[turn]);
  return turns[turn] == 0 ? kYes : kNo;
}

TEST(DirectIORecords, InitGoesOnAfterAnEventCannotBeMade) {
  struct {
    std::vector<uint32_t> turns;
    uint32_t error;
  } const walks[] = {
      {{7, 0, 0, 0}, 7}, {{0, 7, 0, 0}, 7}, {{0, 0, 0, 7}, 7}, {{7, 0, 8, 0}, 8}, {{9, 8, 7, 6}, 6},
  };
  Context ctx;
  const ImportPatch patch("CreateEventA", reinterpret_cast<void*>(&MakeEventInTurn));
  for (const auto& walk : walks) {
    turns = walk.turns;
    handles.clear();
    KivSdNoWaitCb records[4];
    for (KivSdNoWaitCb& record : records) record = RecordWithEvent();
    CHECK_OUTCOME(ctx, KivSdDirectIONoWaitCbsInit(ctx, records, 4), KIV_ST_EVENT_CREATE,
                  walk.error);
    ASSERT_EQ(handles.size(), 4u);
    for (size_t i = 0; i < 4; ++i) {
      EXPECT_EQ(records[i].event, turns[i] == 0 ? handles[i] : nullptr) << i;
    }
    handles.clear();
    EXPECT_EQ(KivSdDirectIONoWaitCbsInit(nullptr, records, 4), KIV_ST_EVENT_CREATE);
  }
}

TEST(DirectIORecords, InitMakesManualUnsignalledUnnamedEvents) {
  const ScriptedImport create("CreateEventA", {.result = 0x99});
  KivSdNoWaitCb record = {};
  EXPECT_EQ(KivSdDirectIONoWaitCbsInit(nullptr, &record, 1), KIV_ST_OK);
  ASSERT_EQ(create.calls().size(), 1u);
  EXPECT_EQ(create.calls()[0][0], 0u);
  EXPECT_EQ(Low(create.calls()[0][1]), 1u);
  EXPECT_EQ(Low(create.calls()[0][2]), 0u);
  EXPECT_EQ(create.calls()[0][3], 0u);
}

TEST(DirectIORecords, TermGoesOnAfterAnEventCannotBeClosed) {
  Context ctx;
  const ImportPatch patch("CloseHandle", reinterpret_cast<void*>(&CloseInTurn));
  KivSdNoWaitCb records[4];
  for (KivSdNoWaitCb& record : records) record = RecordWithEvent();
  records[1].event = nullptr;
  records[3].event = reinterpret_cast<KivHandle>(0x33);
  struct {
    std::vector<uint32_t> turns;
    uint32_t error;
  } const walks[] = {
      {{7, 0, 0}, 7}, {{0, 7, 0}, 7}, {{0, 0, 7}, 7}, {{9, 8, 0}, 8}, {{9, 8, 6}, 6}};
  for (const auto& walk : walks) {
    turns = walk.turns;
    handles.clear();
    CHECK_OUTCOME(ctx, KivSdDirectIONoWaitCbsTerm(ctx, records, 4), KIV_ST_EVENT_CLOSE, walk.error);
    EXPECT_EQ(handles, (std::vector<void*>{kEvent, kEvent, records[3].event}));
    EXPECT_EQ(records[0].event, kEvent);
    handles.clear();
    EXPECT_EQ(KivSdDirectIONoWaitCbsTerm(nullptr, records, 4), KIV_ST_EVENT_CLOSE);
  }
}

// ---- The lease guard ----

struct GuardedOperation {
  const char* name;
  std::function<void()> run;
};

uint32_t word;
KivSdNoWaitCb* NewRecord() {
  static KivSdNoWaitCb record;
  record = {};
  return &record;
}

const GuardedOperation kGuarded[] = {
    {"Create", [] { KivSdDirectIOFileCreate(nullptr, "path"); }},
    {"Open", [] { KivSdDirectIOFileOpen(nullptr, "path", 0, 0, 0, nullptr, 0, &word); }},
    {"Remove", [] { KivSdDirectIOFileRemove(nullptr, "path"); }},
    {"Read", [] { KivSdDirectIOFileRead(nullptr, kFile, 0, buffer, 1, nullptr, &word); }},
    {"Read with a record",
     [] { KivSdDirectIOFileRead(nullptr, kFile, 0, buffer, 1, NewRecord(), &word); }},
    {"Write", [] { KivSdDirectIOFileWrite(nullptr, kFile, 0, buffer, 1, nullptr, &word); }},
    {"Write with a record",
     [] { KivSdDirectIOFileWrite(nullptr, kFile, 0, buffer, 1, NewRecord(), &word); }},
    {"Wait", [] { KivSdDirectIOWait(nullptr, kFile, NewRecord(), &word); }},
    {"PointerSet", [] { KivSdDirectIOFilePointerSet(nullptr, kFile, 0, 0, &word); }},
    {"PointerGet", [] { KivSdDirectIOFilePointerGet(nullptr, kFile, &word); }},
    {"Size", [] { KivSdDirectIOFileSize(nullptr, kFile, &word); }},
    {"SetEndOfFile", [] { KivSdDirectIOFileSetEndOfFile(nullptr, kFile, 0, &word); }},
    {"ChangeSize", [] { KivSdDirectIOFileChangeSize(nullptr, 3, 0, &word); }},
    {"Init", [] { KivSdDirectIONoWaitCbsInit(nullptr, NewRecord(), 1); }},
};

// Count of calls of the runtime and the system, and their count when the guard ran.
uint32_t callsSoFar;
uint32_t callsBeforeGuard;
uint32_t guardRuns;

intptr_t CountCall() {
  ++callsSoFar;
  return 1;
}

void NoteCalls() {
  ++guardRuns;
  callsBeforeGuard += callsSoFar;
}

TEST(DirectIOGuard, RunsOnceBeforeTheSystemsCallsForEveryModeValue) {
  std::vector<std::unique_ptr<ImportPatch>> patches;
  for (const char* call :
       {"CreateFileA", "CloseHandle", "DeleteFileA", "ReadFile", "WriteFile", "CreateEventA",
        "WaitForSingleObject", "SetFilePointer", "GetFileSize", "SetEndOfFile", "_chsize"}) {
    patches.push_back(std::make_unique<ImportPatch>(call, reinterpret_cast<void*>(&CountCall)));
  }
  KivSdSetLeaseGuardAccessFunction(&NoteCalls);
  for (const int mode : {1, 2, 0x80, 0xFF}) {
    KivSdSetFailoverModeFlag(static_cast<uint8_t>(mode));
    for (const GuardedOperation& operation : kGuarded) {
      SCOPED_TRACE(operation.name);
      callsSoFar = callsBeforeGuard = guardRuns = 0;
      operation.run();
      EXPECT_EQ(guardRuns, 1u);
      EXPECT_EQ(callsBeforeGuard, 0u);
      EXPECT_GE(callsSoFar, 1u);
    }
  }
  KivSdSetFailoverModeFlag(0);
  KivSdSetLeaseGuardAccessFunction(nullptr);
}

TEST(DirectIOGuard, RunsForInitOfAnEmptyArrayAndNotForTerm) {
  Context ctx;
  const ScriptedImport create("CreateEventA", {.result = 0x99});
  GuardWatch guard;
  CHECK_OK(ctx, KivSdDirectIONoWaitCbsInit(ctx, nullptr, 0));
  EXPECT_EQ(guard.TakeRuns(), 1u);
  CHECK_OK(ctx, KivSdDirectIONoWaitCbsTerm(ctx, nullptr, 0));
  EXPECT_EQ(guard.TakeRuns(), 0u);
  EXPECT_TRUE(create.calls().empty());
}

// ---- Bad arguments ----

TEST(DirectIOArguments, ThatAreBadMakeNoCallOfTheSystem) {
  Context ctx;
  const Transfers transfers;
  const ScriptedImport create("CreateFileA", {.result = 8});
  const ScriptedImport event("CreateEventA", {.result = 8});
  const ScriptedImport move("SetFilePointer", {.result = 8});
  const ScriptedImport end("SetEndOfFile", {.result = 1});
  const ScriptedImport size("GetFileSize", {.result = 8});
  const ScriptedImport change("_chsize", {.result = 0});
  const ScriptedImport wait("WaitForSingleObject", {.result = 0});
  KivSdNoWaitCb record = {};
  uint32_t count = kUntouched;
  CHECK_ARGUMENT(ctx, KivSdDirectIOFileCreate(ctx, nullptr));
  CHECK_ARGUMENT(ctx, KivSdDirectIOFileOpen(ctx, nullptr, 0, 0, 0, nullptr, 0, &count));
  CHECK_ARGUMENT(ctx, KivSdDirectIOFileOpen(ctx, "path", 0, 0, 0, nullptr, 0, nullptr));
  CHECK_ARGUMENT(ctx, KivSdDirectIOFileRead(ctx, 8, 0, buffer, 1, nullptr, nullptr));
  CHECK_ARGUMENT(ctx, KivSdDirectIOFileRead(ctx, 8, 0, buffer, 1, &record, nullptr));
  CHECK_ARGUMENT(ctx, KivSdDirectIOFileWrite(ctx, 8, 0, buffer, 1, nullptr, nullptr));
  CHECK_ARGUMENT(ctx, KivSdDirectIOFileWrite(ctx, 8, 0, buffer, 1, &record, nullptr));
  CHECK_ARGUMENT(ctx, KivSdDirectIOWait(ctx, 8, nullptr, &count));
  CHECK_ARGUMENT(ctx, KivSdDirectIOWait(ctx, 8, &record, nullptr));
  CHECK_ARGUMENT(ctx, KivSdDirectIOFilePointerSet(ctx, 8, 0, 0, nullptr));
  CHECK_ARGUMENT(ctx, KivSdDirectIOFilePointerGet(ctx, 8, nullptr));
  CHECK_ARGUMENT(ctx, KivSdDirectIOFileSize(ctx, 8, nullptr));
  CHECK_ARGUMENT(ctx, KivSdDirectIOFileSetEndOfFile(ctx, 8, 0, nullptr));
  CHECK_ARGUMENT(ctx, KivSdDirectIOFileChangeSize(ctx, 3, 0, nullptr));
  CHECK_ARGUMENT(ctx, KivSdDirectIONoWaitCbsInit(ctx, nullptr, 1));
  CHECK_ARGUMENT(ctx, KivSdDirectIONoWaitCbsTerm(ctx, nullptr, 1));
  EXPECT_EQ(count, kUntouched);
  EXPECT_TRUE(asked.empty());
  for (const ScriptedImport* call : {&create, &event, &move, &end, &size, &change, &wait}) {
    EXPECT_TRUE(call->calls().empty());
  }
}

TEST(DirectIOArguments, LeaveNullPathsToRemoveAndNullBuffersToTheSystem) {
  Context ctx;
  const Transfers transfers;
  const ScriptedImport remove("DeleteFileA", {.result = 0, .error = kErrorAccessDenied});
  CHECK_OUTCOME(ctx, KivSdDirectIOFileRemove(ctx, nullptr), KIV_ST_FILE_REMOVE, kErrorAccessDenied);
  EXPECT_EQ(remove.calls()[0][0], 0u);
  answer = {kNo, 998, 0};
  uint32_t count = kUntouched;
  CHECK_OUTCOME(ctx, KivSdDirectIOFileWrite(ctx, kFile, 0, nullptr, 1, nullptr, &count),
                KIV_ST_FILE_WRITE, 998u);
  EXPECT_EQ(count, 0u);
}

}  // namespace
