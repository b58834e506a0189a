// File operations when the calls of the runtime and the system fail: statuses, recorded errors and
// outputs.
#include <gtest/gtest.h>

#include <cerrno>
#include <string>
#include <vector>

#include "kivsdu/kivsdu.h"
#include "support/context.h"
#include "support/import_patch.h"
#include "support/os_errors.h"
#include "support/stream.h"
#include "support/stubbed_import.h"

namespace {

using namespace kiv::test;

constexpr uint32_t kErrnoNoSpace = 28;
constexpr uint32_t kErrorSharing = 32;  // of the stand-in, on every platform
constexpr uint32_t kErrorDiskFull = kOsDiskFull;
constexpr uint32_t kOtherError = 7777;  // the error that must not be recorded

// ---- Operations that make one call of the runtime ----

char buffer[8];
uint32_t output;  // the 32-bit output of any operation
uint64_t output64;

uint32_t Create(KivSdContext* ctx) { return KivSdFileCreate(ctx, "path", 0, &output); }
uint32_t Open(KivSdContext* ctx) { return KivSdFileOpen(ctx, "path", 0, 0, &output); }
uint32_t Open64(KivSdContext* ctx) { return KivSdFileOpen64(ctx, "path", 0, 0, &output); }
uint32_t OpenNew(KivSdContext* ctx) {
  return KivSdFileOpenExclusiveMode(ctx, "path", 0, 0, &output);
}
uint32_t ShareOpen(KivSdContext* ctx) {
  return KivSdFileSOpen(ctx, "path", 0, kDenyNone, 0, &output);
}
uint32_t ShareOpenNew(KivSdContext* ctx) {
  return KivSdFileSOpenExclusiveMode(ctx, "path", 0, kDenyNone, 0, &output);
}
uint32_t Close(KivSdContext* ctx) { return KivSdFileClose(ctx, 3); }
uint32_t Read(KivSdContext* ctx) { return KivSdFileRead(ctx, 3, buffer, 8, &output); }
uint32_t Write(KivSdContext* ctx) { return KivSdFileWrite(ctx, 3, buffer, 8, &output); }
uint32_t Flush(KivSdContext* ctx) { return KivSdFileFlush(ctx, 3); }
uint32_t Seek(KivSdContext* ctx) { return KivSdFileLSeek(ctx, 3, 0, 0, &output); }
uint32_t Seek64(KivSdContext* ctx) { return KivSdFileLSeek64(ctx, 3, 0, 0, &output64); }
uint32_t Tell(KivSdContext* ctx) { return KivSdFileTell(ctx, 3, &output); }
uint32_t Length(KivSdContext* ctx) { return KivSdFileLength(ctx, 3, &output); }
uint32_t SetEnd(KivSdContext* ctx) { return KivSdFileSetEndOfFile(ctx, 3, 8, &output, nullptr); }
uint32_t Remove(KivSdContext* ctx) { return KivSdFileRemove(ctx, "path"); }

struct Operation {
  const char* call;
  uint32_t (*run)(KivSdContext* ctx);
  uint32_t status;
  uint32_t outputOnFailure = kUntouched;
};

const Operation kOperations[] = {
    {"_creat", Create, 1130608, 0xFFFFFFFF},
    {"_open", Open, 1130610, 0xFFFFFFFF},
    {"_open", Open64, 1130610, 0xFFFFFFFF},
    {"_open", OpenNew, 1130610, 0xFFFFFFFF},
    {"_sopen", ShareOpen, 1130611, 0xFFFFFFFF},
    {"_sopen", ShareOpenNew, 1130611, 0xFFFFFFFF},
    {"_close", Close, 1130612},
    {"_read", Read, 1130613, 0xFFFFFFFF},
    {"_write", Write, 1130614, 0xFFFFFFFF},
    {"_commit", Flush, 1130622},
    {"_lseek", Seek, 1130615, 0xFFFFFFFF},
    {"_lseeki64", Seek64, 1130615},
    {"_tell", Tell, 1130616, 0xFFFFFFFF},
    {"_filelength", Length, 1130617, 0xFFFFFFFF},
    {"_chsize", SetEnd, 1130630, 0},
    {"_unlink", Remove, 1130607},
};

TEST(FileFailure, ReportsTheOperationsStatusAndTheRuntimesError) {
  Context ctx;
  for (const Operation& operation : kOperations) {
    SCOPED_TRACE(operation.call);
    for (const int error : {0, ENOENT, EIO, EACCES, 0x7FFFFFFF}) {
      const StubbedImport failing(operation.call, StubbedImport::kFailed, error, kOtherError);
      output = kUntouched;
      CHECK_OUTCOME(ctx, operation.run(ctx), operation.status, static_cast<uint32_t>(error));
      EXPECT_EQ(output, operation.outputOnFailure);
      EXPECT_EQ(operation.run(nullptr), operation.status);
      EXPECT_EQ(failing.calls(), 2u);
    }
  }
}

TEST(FileFailure, OfASeekIn64BitsStoresAllBitsSet) {
  const StubbedImport failing("_lseeki64", StubbedImport::kFailed, EIO, kOtherError);
  output64 = kUntouched;
  EXPECT_EQ(Seek64(nullptr), KIV_ST_FILE_SEEK);
  EXPECT_EQ(output64, 0xFFFFFFFFFFFFFFFFu);
}

TEST(FileFailure, IsNotReportedIfASuccessfulCallLeavesAnError) {
  Context ctx;
  for (const Operation& operation : kOperations) {
    SCOPED_TRACE(operation.call);
    const StubbedImport succeeding(operation.call, 0, kErrnoNoSpace, kErrorSharing);
    CHECK_OK(ctx, operation.run(ctx));
    EXPECT_EQ(operation.run(nullptr), KIV_ST_OK);
  }
}

TEST(FileFailure, IsNotReportedForAnyOtherResultOfTheRuntime) {
  for (const Operation& operation : kOperations) {
    if (operation.outputOnFailure != 0xFFFFFFFF) continue;
    SCOPED_TRACE(operation.call);
    for (const intptr_t result : {intptr_t{0}, intptr_t{5}, intptr_t{-2}}) {
      const StubbedImport succeeding(operation.call, result, EIO, kOtherError);
      EXPECT_EQ(operation.run(nullptr), KIV_ST_OK);
      EXPECT_EQ(output, static_cast<uint32_t>(result));
    }
  }
  const StubbedImport succeeding("_lseeki64", 0x123456789A, EIO, kOtherError);
  EXPECT_EQ(Seek64(nullptr), KIV_ST_OK);
  EXPECT_EQ(output64, 0x123456789Au);
}

TEST(FileFailure, DoesNotChangeTheArgumentsOfTheRuntimesCalls) {
  const ScriptedImport read("_read", {.result = 0});
  const ScriptedImport write("_write", {.result = 0});
  const ScriptedImport seek("_lseek", {.result = 0});
  const ScriptedImport seek64("_lseeki64", {.result = 0});
  const ScriptedImport resize("_chsize", {.result = 0});
  const uintptr_t address = reinterpret_cast<uintptr_t>(buffer);
  EXPECT_EQ(KivSdFileRead(nullptr, 7, buffer, 0xFFFFFFFE, &output), KIV_ST_OK);
  EXPECT_EQ(static_cast<uint32_t>(read.calls().at(0)[0]), 7u);
  EXPECT_EQ(read.calls().at(0)[1], address);
  EXPECT_EQ(static_cast<uint32_t>(read.calls().at(0)[2]), 0xFFFFFFFEu);
  EXPECT_EQ(KivSdFileWrite(nullptr, 8, buffer, 9, &output), KIV_ST_OK);
  EXPECT_EQ(static_cast<uint32_t>(write.calls().at(0)[0]), 8u);
  EXPECT_EQ(write.calls().at(0)[1], address);
  EXPECT_EQ(static_cast<uint32_t>(write.calls().at(0)[2]), 9u);
  EXPECT_EQ(KivSdFileLSeek(nullptr, 9, -10, 2, nullptr), KIV_ST_OK);
  EXPECT_EQ(static_cast<int32_t>(seek.calls().at(0)[1]), -10);
  EXPECT_EQ(static_cast<uint32_t>(seek.calls().at(0)[2]), 2u);
  EXPECT_EQ(KivSdFileLSeek64(nullptr, 9, INT64_MIN + 1, 1, nullptr), KIV_ST_OK);
  EXPECT_EQ(static_cast<int64_t>(seek64.calls().at(0)[1]), INT64_MIN + 1);
  EXPECT_EQ(static_cast<uint32_t>(seek64.calls().at(0)[2]), 1u);
  EXPECT_EQ(KivSdFileSetEndOfFile(nullptr, 9, 11, nullptr, nullptr), KIV_ST_OK);
  EXPECT_EQ(static_cast<uint32_t>(resize.calls().at(0)[0]), 9u);
  EXPECT_EQ(static_cast<uint32_t>(resize.calls().at(0)[1]), 11u);
}

// ---- Unknown end of a file ----

TEST(FileEndFailure, IsReportedAsSuccessWithTheRuntimesResultInTheByte) {
  Context ctx;
  for (const int answer : {-1, 0, 1}) {
    const StubbedImport eof("_eof", answer, EIO, kOtherError);
    uint8_t atEnd = 99;
    CHECK_OK(ctx, KivSdFileEof(ctx, 3, &atEnd));
    EXPECT_EQ(atEnd, static_cast<uint8_t>(answer));
  }
}

// ---- A file held by another process ----

TEST(FileSharingFailure, IsRecognisedOnlyByTheLastError) {
  struct {
    int errnoValue;
    uint32_t lastError;
    uint32_t status;
  } const cases[] = {
      {EACCES, kErrorSharing, KIV_ST_FILE_SHARING},
      {ENOENT, kErrorSharing, KIV_ST_FILE_SHARING},
      {32, 5, KIV_ST_FILE_SHARE_OPEN},
      {EACCES, kErrorSharing - 1, KIV_ST_FILE_SHARE_OPEN},
      {EACCES, kErrorSharing + 1, KIV_ST_FILE_SHARE_OPEN},
      {EACCES, 0, KIV_ST_FILE_SHARE_OPEN},
  };
  Context ctx;
  for (const auto& [errnoValue, lastError, status] : cases) {
    SCOPED_TRACE(lastError);
    for (const auto operation : {ShareOpen, ShareOpenNew}) {
      const StubbedImport failing("_sopen", StubbedImport::kFailed, errnoValue, lastError);
      output = kUntouched;
      CHECK_OUTCOME(ctx, operation(ctx), status, static_cast<uint32_t>(errnoValue));
      EXPECT_EQ(output, KIV_FILE_NONE);
      EXPECT_EQ(operation(nullptr), status);
    }
  }
}

TEST(FileSharingFailure, OfAnEarlierCallIsIgnored) {
  // A failure of the runtime itself leaves the last error of an earlier call.
  const ImportPatch failing("_sopen", reinterpret_cast<void*>(+[]() -> int {
                              errno = EMFILE;
                              return -1;
                            }));
  Context ctx;
  for (const auto operation : {ShareOpen, ShareOpenNew}) {
    SetErrors(0, kErrorSharing);
    CHECK_OUTCOME(ctx, operation(ctx), KIV_ST_FILE_SHARE_OPEN, EMFILE);
  }
}

TEST(FileSharingFailure, IsNotReportedByOpensWithoutShareFlags) {
  const StubbedImport failing("_open", StubbedImport::kFailed, EACCES, kErrorSharing);
  Context ctx;
  for (const auto operation : {Open, Open64, OpenNew}) {
    CHECK_OUTCOME(ctx, operation(ctx), KIV_ST_FILE_OPEN, EACCES);
  }
}

// ---- A full disk ----

TEST(FullDisk, IsRecognisedByErrnoWhenWritingAtThePosition) {
  Context ctx;
  for (const int error : {27, 28, 29, 112}) {
    const StubbedImport failing("_write", StubbedImport::kFailed, error, kErrorDiskFull);
    output = kUntouched;
    CHECK_OUTCOME(ctx, Write(ctx), error == 28 ? KIV_ST_DISK_FULL : KIV_ST_FILE_WRITE,
                  static_cast<uint32_t>(error));
    EXPECT_EQ(output, 0xFFFFFFFFu);
  }
}

TEST(FullDisk, IsRecognisedByErrnoWhenSettingTheEnd) {
  Context ctx;
  for (const int error : {27, 28, 29, 112}) {
    const StubbedImport failing("_chsize", StubbedImport::kFailed, error, kErrorDiskFull);
    uint32_t newLength = kUntouched;
    uint32_t osError = kUntouched;
    CHECK_OUTCOME(ctx, KivSdFileSetEndOfFile(ctx, 3, 8, &newLength, &osError),
                  error == 28 ? KIV_ST_DISK_FULL : KIV_ST_DIRECT_SET_END,
                  static_cast<uint32_t>(error));
    EXPECT_EQ(newLength, 0u);
    EXPECT_EQ(osError, static_cast<uint32_t>(error));
    EXPECT_EQ(KivSdFileSetEndOfFile(nullptr, 3, 8, nullptr, nullptr),
              error == 28 ? KIV_ST_DISK_FULL : KIV_ST_DIRECT_SET_END);
  }
}

TEST(FullDisk, IsNotReportedForAPartialWrite) {
  const StubbedImport partial("_write", 3, kErrnoNoSpace, kErrorDiskFull);
  Context ctx;
  CHECK_OK(ctx, Write(ctx));
  EXPECT_EQ(output, 3u);
}

// ---- Transfers at an offset ----

// The arguments of the system's transfer, and its results.
struct Transfer {
  void* file;
  const void* buffer;
  uint32_t length;
  KivSdNoWaitCb position;
};
std::vector<Transfer> transfers;
uint32_t transferCount;
uint32_t transferError;

int32_t AnswerTransfer(void* file, void* bytes, uint32_t length, uint32_t* count,
                       KivSdNoWaitCb* position) {
  transfers.push_back({file, bytes, length, *position});
  *count = transferCount;
  SetErrors(kErrnoNoSpace, transferError);
  return transferError == 0 ? 1 : 0;
}

class AtOffset : public testing::Test {
 protected:
  AtOffset() {
    transfers.clear();
    transferCount = 3;
    transferError = 0;
  }

  uint32_t Read(KivSdContext* ctx) {
    return KivSdFilePRead(ctx, 3, buffer, 0xFFFFFFF0, 8, &count_);
  }
  uint32_t Write(KivSdContext* ctx) {
    return KivSdFilePWrite(ctx, 3, buffer, 0xFFFFFFF0, 8, &count_, &osError_);
  }

  static void ExpectAsked(uint32_t offset) {
    ASSERT_EQ(transfers.size(), 1u);
    EXPECT_EQ(transfers[0].file, reinterpret_cast<void*>(0x1234));
    EXPECT_EQ(transfers[0].buffer, buffer);
    EXPECT_EQ(transfers[0].length, 8u);
    EXPECT_EQ(transfers[0].position.offsetLow, offset);
    EXPECT_EQ(transfers[0].position.offsetHigh, 0u);
    EXPECT_EQ(transfers[0].position.event, nullptr);
  }

  Context ctx_;
  uint32_t count_ = kUntouched;
  uint32_t osError_ = kUntouched;
  const ScriptedImport handle_{"_get_osfhandle", {.result = 0x1234}};
  const ImportPatch read_{"ReadFile", reinterpret_cast<void*>(&AnswerTransfer)};
  const ImportPatch write_{"WriteFile", reinterpret_cast<void*>(&AnswerTransfer)};
};

TEST_F(AtOffset, ReadCallsTheSystemOnceWithoutAnEvent) {
  CHECK_OK(ctx_, Read(ctx_));
  ExpectAsked(0xFFFFFFF0);
  EXPECT_EQ(count_, 3u) << "a partial transfer is a success";
  ASSERT_EQ(handle_.calls().size(), 1u);
  EXPECT_EQ(static_cast<uint32_t>(handle_.calls()[0][0]), 3u);
}

TEST_F(AtOffset, WriteCallsTheSystemOnceWithoutAnEvent) {
  CHECK_OK(ctx_, Write(ctx_));
  ExpectAsked(0xFFFFFFF0);
  EXPECT_EQ(count_, 3u) << "a partial transfer is a success";
  EXPECT_EQ(osError_, 0u);
}

TEST_F(AtOffset, AFailedReadReportsTheSystemsErrorAndCount) {
  for (const uint32_t error : {5u, 38u, 112u, 997u}) {
    transferError = error;
    count_ = kUntouched;
    CHECK_OUTCOME(ctx_, Read(ctx_), KIV_ST_FILE_READ, error);
    EXPECT_EQ(count_, 3u);
    EXPECT_EQ(Read(nullptr), KIV_ST_FILE_READ);
  }
}

TEST_F(AtOffset, AFailedWriteReportsTheSystemsErrorAndCount) {
  for (const uint32_t error : {5u, kOsDiskFull - 1, kOsDiskFull, kOsDiskFull + 1, 38u, 997u}) {
    const uint32_t status = error == kOsDiskFull ? KIV_ST_DISK_FULL : KIV_ST_FILE_WRITE;
    transferError = error;
    count_ = kUntouched;
    CHECK_OUTCOME(ctx_, Write(ctx_), status, error);
    EXPECT_EQ(count_, 3u);
    EXPECT_EQ(osError_, error);
    EXPECT_EQ(Write(nullptr), status);
    EXPECT_EQ(KivSdFilePWrite(nullptr, 3, buffer, 0, 8, &count_, nullptr), status);
  }
}

TEST_F(AtOffset, WriteClearsTheErrorFirst) {
  const ImportPatch write(
      "WriteFile",
      reinterpret_cast<void*>(+[](void*, const void*, uint32_t, uint32_t* count, KivSdNoWaitCb*) {
        *count = output;
        return int32_t{1};
      }));
  output = 0xEE;
  CHECK_OK(ctx_, KivSdFilePWrite(ctx_, 3, buffer, 0, 8, &count_, &output));
  EXPECT_EQ(count_, 0u);
  EXPECT_EQ(output, 0u);
}

TEST_F(AtOffset, TransfersNothingWithoutASystemFile) {
  const StubbedImport none("_get_osfhandle", StubbedImport::kFailed, EBADF, kOtherError);
  CHECK_OUTCOME(ctx_, Read(ctx_), KIV_ST_FILE_READ, EBADF);
  EXPECT_EQ(count_, 0u);
  count_ = kUntouched;
  CHECK_OUTCOME(ctx_, Write(ctx_), KIV_ST_FILE_READ, EBADF);
  EXPECT_EQ(count_, 0u);
  EXPECT_EQ(osError_, static_cast<uint32_t>(EBADF));
  EXPECT_EQ(Write(nullptr), KIV_ST_FILE_READ);
  EXPECT_TRUE(transfers.empty());
}

TEST_F(AtOffset, ReportsABadDescriptorEvenIfErrnoMeansAFullDisk) {
  const StubbedImport none("_get_osfhandle", StubbedImport::kFailed, kErrnoNoSpace, kErrorDiskFull);
  CHECK_OUTCOME(ctx_, Write(ctx_), KIV_ST_FILE_READ, kErrnoNoSpace);
}

}  // namespace
