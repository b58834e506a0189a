// Mapped-file handles. On this platform every handle is a file descriptor.
#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>
#include <functional>
#include <string>

#include "kivsdu/kivsdu.h"
#include "support/context.h"
#include "support/guard_watch.h"
#include "support/guarded.h"
#include "support/import_patch.h"
#include "support/os_errors.h"
#include "support/process.h"
#include "support/stream.h"
#include "support/stubbed_import.h"
#include "support/temporary_folder.h"

namespace {

using namespace kiv::test;

constexpr uint32_t kFlags = kBinary | kReadWrite | kCreate;
constexpr uintptr_t kFailed = static_cast<uintptr_t>(-1);
constexpr char kNotExclusive[] = "(iOFlag & KIV_FILEO_EXCL) != KIV_FILEO_EXCL";

uint32_t Open(KivSdContext* ctx, const std::string& path, uint16_t mode, KivSdMMAPFile* handle,
              uint32_t flags = kFlags) {
  return KivSdMMAPFileOpen(ctx, path.c_str(), flags, kDenyNone, kBothPermissions, 1, 2, mode,
                           handle);
}

KivSdMMAPFile HandleOfKind(uint16_t kind, int32_t file = -1) {
  KivSdMMAPFile handle = {};
  handle.file = file;
  handle.kind = kind;
  return handle;
}

class MappedFile : public testing::Test {
 protected:
  std::string path() const { return folder_.Path("file"); }

  TemporaryFolder folder_;
  Context ctx_;
};
using MappedFileOpen = MappedFile;

// A handle of the file, opened in binary mode. The destructor closes it.
class Handle {
 public:
  explicit Handle(const std::string& path) {
    KivSdMMAPHdlReset(&handle_);
    EXPECT_EQ(Open(nullptr, path, 0, &handle_), KIV_ST_OK);
  }
  ~Handle() { EXPECT_EQ(KivSdMMAPFileClose(nullptr, &handle_), KIV_ST_OK); }
  Handle(const Handle&) = delete;
  Handle& operator=(const Handle&) = delete;

  operator KivSdMMAPFile*() { return &handle_; }

 private:
  KivSdMMAPFile handle_;
};

// ---- The record ----

TEST_F(MappedFile, ResetMakesAHandleWithoutAFile) {
  Guarded<KivSdMMAPFile> handle;
  EXPECT_EQ(KivSdMMAPHdlReset(handle), 0u);
  EXPECT_EQ(handle->file, -1);
  EXPECT_EQ(handle->kind, 0);
  const KivSdMMAPFile zero = {};
  EXPECT_EQ(std::memcmp(handle->extendSizes, zero.extendSizes, sizeof zero.extendSizes), 0);
  EXPECT_EQ(std::memcmp(handle->mappingState, zero.mappingState, sizeof zero.mappingState), 0);
}

TEST_F(MappedFile, ResetClosesNothing) {
  const ScriptedImport close("_close", {.result = 0});
  KivSdMMAPFile handle = HandleOfKind(KIV_MMAP_KIND_FILE, 77);
  EXPECT_EQ(KivSdMMAPHdlReset(&handle), 0u);
  EXPECT_TRUE(close.calls().empty());
}

TEST_F(MappedFile, ExtendSizesAreStoredOnlyInAMappedHandle) {
  KivSdMMAPFile mapped = HandleOfKind(KIV_MMAP_KIND_MAPPED);
  KivSdMMAPFileSetExtendSize(nullptr, 0xFFFFFFFF, 7, &mapped);
  EXPECT_EQ(mapped.extendSizes[0], 0xFFFFFFFFu);
  EXPECT_EQ(mapped.extendSizes[1], 7u);
  for (const uint16_t kind : {uint16_t{0}, uint16_t{100}, uint16_t{102}}) {
    KivSdMMAPFile other = HandleOfKind(kind);
    KivSdMMAPFileSetExtendSize(nullptr, 5, 7, &other);
    EXPECT_EQ(other.extendSizes[0], 0u);
    EXPECT_EQ(other.extendSizes[1], 0u);
  }
}

TEST_F(MappedFile, SettingExtendSizesDoesNotWriteTheContext) {
  KivSdMMAPFile mapped = HandleOfKind(KIV_MMAP_KIND_MAPPED);
  KivSdMMAPFileSetExtendSize(ctx_, 5, 7, &mapped);
  EXPECT_TRUE(ctx_.IsUntouched());
}

// ---- Opening ----

TEST_F(MappedFileOpen, StoresTheDescriptorAndTheKind) {
  for (const uint16_t mode : {uint16_t{0}, uint16_t{1}, uint16_t{3}, uint16_t{7}}) {
    Guarded<KivSdMMAPFile> handle;
    EXPECT_EQ(KivSdMMAPHdlReset(handle), 0u);
    CHECK_OK(ctx_, Open(ctx_, path(), mode, handle));
    EXPECT_EQ(handle->kind, KIV_MMAP_KIND_FILE);
    const auto file = static_cast<uint32_t>(handle->file);
    uint32_t count = 0;
    EXPECT_EQ(KivSdFileWrite(nullptr, file, "x", 1, &count), KIV_ST_OK);
    CHECK_OK(ctx_, KivSdMMAPFileClose(ctx_, handle));
    EXPECT_EQ(static_cast<uint32_t>(handle->file), file) << "closing must keep the field";
    EXPECT_EQ(handle->kind, KIV_MMAP_KIND_FILE);
  }
}

TEST_F(MappedFileOpen, SelectsTheOpenOperationByTheMode) {
  struct {
    uint16_t mode;
    const char* call;
    uint32_t flags;
  } const cases[] = {
      {1, "_sopen", 0x8102}, {6, "_sopen", 0x8502},     {4, "_open", 0x8502}, {5, "_open", 0x8502},
      {0, "_open", 0x8102},  {2, "_open", 0x8102},      {3, "_open", 0x8102}, {7, "_open", 0x8102},
      {8, "_open", 0x8102},  {0xFFFF, "_open", 0x8102},
  };
  for (const auto& [mode, call, flags] : cases) {
    SCOPED_TRACE(mode);
    KivSdMMAPFile handle = HandleOfKind(0);
    const ScriptedImport open(call, {.result = 77});
    CHECK_OK(ctx_, KivSdMMAPFileOpen(ctx_, "a path", kFlags, kDenyRead, 0x80, 1, 2, mode, &handle));
    EXPECT_EQ(handle.file, 77);
    ASSERT_EQ(open.calls().size(), 1u);
    EXPECT_STREQ(reinterpret_cast<const char*>(open.calls()[0][0]), "a path");
    EXPECT_EQ(static_cast<uint32_t>(open.calls()[0][1]), flags);
    const bool shared = std::strcmp(call, "_sopen") == 0;
    if (shared) {
      EXPECT_EQ(static_cast<uint32_t>(open.calls()[0][2]), kDenyRead);
    }
    EXPECT_EQ(static_cast<uint32_t>(open.calls()[0][shared ? 3 : 2]), 0x80u);
  }
}

TEST(MappedFileOpenDeathTest, AssertsLikeKivSdFileOpen) {
  KivSdMMAPFile handle = {};
  EXPECT_ASSERTION(Open(nullptr, "", 2, &handle, KIV_FILEO_EXCL), kNotExclusive, "sd/sdfiow32",
                   561);
}

TEST(MappedFileOpenDeathTest, AssertsLikeKivSdFileOpen64) {
  KivSdMMAPFile handle = {};
  EXPECT_ASSERTION(Open(nullptr, "", 3, &handle, KIV_FILEO_EXCL), kNotExclusive, "sd/sdfiow32",
                   583);
}

TEST(MappedFileOpenDeathTest, AssertsLikeKivSdFileSOpen) {
  KivSdMMAPFile handle = {};
  EXPECT_ASSERTION(Open(nullptr, "", 1, &handle, KIV_FILEO_EXCL), kNotExclusive, "sd/sdfiow32",
                   652);
}

TEST_F(MappedFileOpen, OfAnExistingFileFailsInTheModesForNewFiles) {
  folder_.Write("file", "content");
  struct {
    uint16_t mode;
    uint32_t status;
  } const cases[] = {{4, KIV_ST_FILE_OPEN}, {5, KIV_ST_FILE_OPEN}, {6, KIV_ST_FILE_SHARE_OPEN}};
  for (const auto& [mode, status] : cases) {
    for (const uint16_t kind : {uint16_t{0}, uint16_t{101}, uint16_t{102}}) {
      KivSdMMAPFile handle = HandleOfKind(kind, 55);
      CHECK_OUTCOME(ctx_, Open(ctx_, path(), mode, &handle), status, EEXIST);
      EXPECT_EQ(handle.kind, kind);
      EXPECT_EQ(handle.file, 55);
      EXPECT_EQ(Open(nullptr, path(), mode, &handle), status);
    }
  }
}

TEST_F(MappedFileOpen, MakesAFileInTheModesForNewFiles) {
  for (const uint16_t mode : {uint16_t{4}, uint16_t{5}, uint16_t{6}}) {
    KivSdMMAPFile handle = HandleOfKind(0);
    CHECK_OK(ctx_, Open(ctx_, path(), mode, &handle));
    EXPECT_EQ(handle.kind, KIV_MMAP_KIND_FILE);
    CHECK_OK(ctx_, KivSdMMAPFileClose(ctx_, &handle));
    folder_.Remove("file");
  }
}

TEST_F(MappedFileOpen, NeedsAPath) {
  for (const uint16_t mode : {uint16_t{0}, uint16_t{1}, uint16_t{3}, uint16_t{4}, uint16_t{6}}) {
    KivSdMMAPFile handle = HandleOfKind(0);
    CHECK_ARGUMENT(ctx_,
                   KivSdMMAPFileOpen(ctx_, nullptr, kFlags, kDenyNone, 0, 1, 2, mode, &handle));
    EXPECT_EQ(handle.kind, 0);
    EXPECT_EQ(handle.file, -1);
  }
}

TEST_F(MappedFileOpen, ReportsASharingViolation) {
  folder_.Write("file", "content");
  Stream stream(path());
  KivSdMMAPFile handle = HandleOfKind(0);
  CHECK_OUTCOME(ctx_,
                KivSdMMAPFileOpen(ctx_, path().c_str(), kReadWrite, kDenyAll, 0, 1, 2,
                                  KIV_MMAP_OPEN_SHARED, &handle),
                KIV_ST_FILE_SHARING, kErrnoSharing);
  EXPECT_EQ(handle.file, -1);
}

// ---- Files ----

TEST_F(MappedFile, IsWrittenAndReadLikeAStream) {
  Handle handle(path());
  uint32_t count = kUntouched;
  CHECK_OK(ctx_, KivSdMMAPFileWrite(ctx_, handle, "0123456789", 10, &count));
  EXPECT_EQ(count, 10u);
  uint32_t position = kUntouched;
  CHECK_OK(ctx_, KivSdMMAPFileLSeek(ctx_, handle, -8, kFromEnd, &position));
  EXPECT_EQ(position, 2u);
  char bytes[4] = {};
  CHECK_OK(ctx_, KivSdMMAPFileRead(ctx_, handle, bytes, 3, &count));
  EXPECT_EQ(count, 3u);
  EXPECT_STREQ(bytes, "234");
  CHECK_OK(ctx_, KivSdMMAPFilePRead(ctx_, handle, bytes, 7, 2, &count));
  EXPECT_EQ(count, 2u);
  EXPECT_STREQ(bytes, "784");
  uint32_t osError = kUntouched;
  CHECK_OK(ctx_, KivSdMMAPFilePWrite(ctx_, handle, "ab", 4, 2, &count, &osError));
  EXPECT_EQ(count, 2u);
  EXPECT_EQ(osError, 0u);
  CHECK_OK(ctx_, KivSdMMAPFileFlush(ctx_, 7, handle));
  uint32_t length = kUntouched;
  osError = kUntouched;
  CHECK_OK(ctx_, KivSdMMAPFileSetEndOfFile(ctx_, handle, 7, &length, &osError));
  EXPECT_EQ(length, 7u);
  EXPECT_EQ(osError, 0u);
  EXPECT_EQ(ContentOf(path()), "0123ab6");
}

// ---- Operations that pass their arguments on ----

char buffer[8];
uint32_t output;
uint32_t secondOutput;

struct Operation {
  const char* call;
  uint32_t (*run)(KivSdContext* ctx, KivSdMMAPFile* handle);
  uint32_t status;
  uint32_t outputOnFailure;
};

const Operation kOperations[] = {
    {"_read",
     [](KivSdContext* ctx, KivSdMMAPFile* handle) {
       return KivSdMMAPFileRead(ctx, handle, buffer, 8, &output);
     },
     KIV_ST_FILE_READ, 0xFFFFFFFF},
    {"_write",
     [](KivSdContext* ctx, KivSdMMAPFile* handle) {
       return KivSdMMAPFileWrite(ctx, handle, buffer, 8, &output);
     },
     KIV_ST_FILE_WRITE, 0xFFFFFFFF},
    {"_get_osfhandle",
     [](KivSdContext* ctx, KivSdMMAPFile* handle) {
       return KivSdMMAPFilePRead(ctx, handle, buffer, 8, 8, &output);
     },
     KIV_ST_FILE_READ, 0},
    {"_lseek",
     [](KivSdContext* ctx, KivSdMMAPFile* handle) {
       return KivSdMMAPFileLSeek(ctx, handle, 0, 0, &output);
     },
     KIV_ST_FILE_SEEK, 0xFFFFFFFF},
    {"_commit",
     [](KivSdContext* ctx, KivSdMMAPFile* handle) { return KivSdMMAPFileFlush(ctx, 7, handle); },
     KIV_ST_FILE_FLUSH, kUntouched},
};

uint32_t WriteAt(KivSdContext* ctx, KivSdMMAPFile* handle) {
  return KivSdMMAPFilePWrite(ctx, handle, buffer, 8, 8, &output, &secondOutput);
}
uint32_t SetEnd(KivSdContext* ctx, KivSdMMAPFile* handle) {
  return KivSdMMAPFileSetEndOfFile(ctx, handle, 8, &output, &secondOutput);
}
uint32_t Close(KivSdContext* ctx, KivSdMMAPFile* handle) { return KivSdMMAPFileClose(ctx, handle); }

class MappedFileFailure : public testing::Test {
 protected:
  MappedFileFailure() { output = secondOutput = kUntouched; }

  Context ctx_;
  KivSdMMAPFile handle_ = HandleOfKind(KIV_MMAP_KIND_FILE, 77);
};

TEST_F(MappedFileFailure, HasTheStreamOperationsStatusAndNoError) {
  for (const Operation& operation : kOperations) {
    SCOPED_TRACE(operation.call);
    output = kUntouched;
    const ScriptedImport failing(operation.call, {.result = kFailed, .error = EIO});
    CHECK_OUTCOME(ctx_, operation.run(ctx_, &handle_), operation.status, 0u);
    EXPECT_EQ(output, operation.outputOnFailure);
    EXPECT_EQ(operation.run(nullptr, &handle_), operation.status);
    ASSERT_EQ(failing.calls().size(), 2u);
    EXPECT_EQ(static_cast<uint32_t>(failing.calls()[0][0]), 77u);
  }
}

TEST_F(MappedFileFailure, OfAFullDiskHasTheStreamOperationsStatus) {
  const StubbedImport full("_write", StubbedImport::kFailed, ENOSPC, 0);
  CHECK_OUTCOME(ctx_, kOperations[1].run(ctx_, &handle_), KIV_ST_DISK_FULL, 0u);
}

TEST_F(MappedFileFailure, OfAWriteAtAnOffsetIsInTheRecordAndTheOutput) {
  const ScriptedImport handle("_get_osfhandle", {.result = 0x1234});
  for (const uint32_t error : {5u, kOsDiskFull}) {
    const ScriptedImport failing("WriteFile", {.result = 0, .error = error});
    output = secondOutput = kUntouched;
    CHECK_OUTCOME(ctx_, WriteAt(ctx_, &handle_),
                  error == kOsDiskFull ? KIV_ST_DISK_FULL : KIV_ST_FILE_WRITE, error);
    EXPECT_EQ(output, 0u);
    EXPECT_EQ(secondOutput, error);
    EXPECT_EQ(KivSdMMAPFilePWrite(nullptr, &handle_, buffer, 8, 8, &output, nullptr),
              error == kOsDiskFull ? KIV_ST_DISK_FULL : KIV_ST_FILE_WRITE);
  }
  EXPECT_EQ(static_cast<uint32_t>(handle.calls().at(0)[0]), 77u);
}

TEST_F(MappedFileFailure, OfAWriteToABadDescriptorIsInTheRecordAndTheOutput) {
  const StubbedImport none("_get_osfhandle", StubbedImport::kFailed, EBADF, 7777);
  CHECK_OUTCOME(ctx_, WriteAt(ctx_, &handle_), KIV_ST_FILE_READ, EBADF);
  EXPECT_EQ(secondOutput, static_cast<uint32_t>(EBADF));
}

TEST_F(MappedFileFailure, OfClosingOrSettingTheEndKeepsTheStreamOperationsRecord) {
  {
    const ScriptedImport close("_close", {.result = kFailed, .error = EIO});
    CHECK_OUTCOME(ctx_, Close(ctx_, &handle_), KIV_ST_FILE_CLOSE, EIO);
    EXPECT_EQ(static_cast<uint32_t>(close.calls().at(0)[0]), 77u);
    EXPECT_EQ(handle_.file, 77);
  }
  const ScriptedImport resize("_chsize", {.result = kFailed, .error = ENOSPC});
  CHECK_OUTCOME(ctx_, SetEnd(ctx_, &handle_), KIV_ST_DISK_FULL, ENOSPC);
  EXPECT_EQ(static_cast<uint32_t>(resize.calls().at(0)[0]), 77u);
  EXPECT_EQ(output, 0u);
  EXPECT_EQ(secondOutput, static_cast<uint32_t>(ENOSPC));

  KivSdMMAPFile none = HandleOfKind(KIV_MMAP_KIND_FILE);
  CHECK_OUTCOME(ctx_, Close(ctx_, &none), KIV_ST_FILE_CLOSE, EBADF);
}

TEST_F(MappedFileFailure, OfTheArgumentsIsThatOfTheStreamOperation) {
  CHECK_ARGUMENT(ctx_, KivSdMMAPFileRead(ctx_, &handle_, nullptr, 8, &output));
  CHECK_ARGUMENT(ctx_, KivSdMMAPFileWrite(ctx_, &handle_, buffer, 8, nullptr));
  CHECK_ARGUMENT(ctx_, KivSdMMAPFilePRead(ctx_, &handle_, nullptr, 8, 8, &output));
  CHECK_ARGUMENT(ctx_, KivSdMMAPFilePWrite(ctx_, &handle_, buffer, 8, 8, nullptr, &secondOutput));
  EXPECT_EQ(output, kUntouched);
  EXPECT_EQ(secondOutput, 0u);
}

// ---- Handles of other kinds ----

class MappedFileOfAnotherKind : public testing::TestWithParam<uint16_t> {
 protected:
  MappedFileOfAnotherKind() { output = secondOutput = kUntouched; }

  Context ctx_;
  TemporaryFolder folder_;
  // A valid descriptor, so that only the kind prevents a transfer.
  Stream stream_{folder_.Path("file")};
  KivSdMMAPFile handle_ = HandleOfKind(GetParam(), static_cast<int32_t>(uint32_t{stream_}));
};

INSTANTIATE_TEST_SUITE_P(Kind, MappedFileOfAnotherKind,
                         testing::Values(KIV_MMAP_KIND_NONE, KIV_MMAP_KIND_MAPPED, 1, 103));

TEST_P(MappedFileOfAnotherKind, DoesNothingAndSucceeds) {
  GuardWatch guard;
  for (const Operation& operation : kOperations) {
    CHECK_OK(ctx_, operation.run(ctx_, &handle_));
    EXPECT_EQ(operation.run(nullptr, &handle_), KIV_ST_OK);
  }
  CHECK_OK(ctx_, WriteAt(ctx_, &handle_));
  EXPECT_EQ(output, kUntouched);
  EXPECT_EQ(secondOutput, 0u) << "must be cleared for every kind";
  CHECK_OK(ctx_, KivSdMMAPFilePWrite(ctx_, &handle_, nullptr, 0, 0, nullptr, nullptr));
  EXPECT_EQ(guard.TakeRuns(), 0u);
  EXPECT_EQ(stream_.Position(), 0u);
}

TEST_P(MappedFileOfAnotherKind, DoesNotWriteTheRecordWhenClosedOrCut) {
  ctx_.Spoil();
  EXPECT_EQ(Close(ctx_, &handle_), KIV_ST_OK);
  EXPECT_EQ(SetEnd(ctx_, &handle_), KIV_ST_OK);
  EXPECT_TRUE(ctx_.IsUntouched());
  EXPECT_EQ(output, kUntouched);
  EXPECT_EQ(secondOutput, kUntouched);
  EXPECT_EQ(stream_.Position(), 0u) << "the descriptor must still be open";
}

}  // namespace
