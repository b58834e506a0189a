// Positions and lengths of real files, including files larger than 4 GiB, and flushing.
#include <gtest/gtest.h>

#include <cerrno>
#include <string>

#include "kivsdu/kivsdu.h"
#include "support/context.h"
#include "support/import_patch.h"
#include "support/stream.h"
#include "support/temporary_folder.h"

namespace {

using namespace kiv::test;

constexpr uint64_t kAllBits = 0xFFFFFFFFFFFFFFFF;
constexpr uint64_t kFourGiB = uint64_t{1} << 32;

class FilePosition : public testing::Test {
 protected:
  std::string path() const { return folder_.Path("file"); }
  void Fill(const std::string& bytes) { folder_.Write("file", bytes); }

  TemporaryFolder folder_;
  Context ctx_;
};
using FileLength = FilePosition;
using FileEnd = FilePosition;
using FileFlush = FilePosition;

// ---- Seeking and telling ----

TEST_F(FilePosition, CountsFromTheStartThePositionOrTheEnd) {
  Fill("0123456789");
  Stream stream(path());
  struct {
    int32_t offset;
    uint32_t origin;
    uint32_t expected;
  } const steps[] = {{4, kFromStart, 4}, {3, kFromHere, 7}, {-5, kFromHere, 2}, {0, kFromHere, 2},
                     {-1, kFromEnd, 9},  {0, kFromEnd, 10}, {5, kFromEnd, 15},  {0, kFromStart, 0}};
  for (const auto& [offset, origin, expected] : steps) {
    SCOPED_TRACE(expected);
    const uint64_t before = stream.Position();
    uint32_t position = kUntouched;
    CHECK_OK(ctx_, KivSdFileLSeek(ctx_, stream, offset, origin, &position));
    EXPECT_EQ(position, expected);
    uint32_t told = kUntouched;
    CHECK_OK(ctx_, KivSdFileTell(ctx_, stream, &told));
    EXPECT_EQ(told, expected);

    stream.MoveTo(static_cast<int64_t>(before));
    uint64_t position64 = kUntouched;
    CHECK_OK(ctx_, KivSdFileLSeek64(ctx_, stream, offset, origin, &position64));
    EXPECT_EQ(position64, expected);
  }
}

TEST_F(FilePosition, IsWhereTheNextReadBegins) {
  Fill("0123456789");
  Stream stream(path());
  CHECK_OK(ctx_, KivSdFileLSeek(ctx_, stream, 6, kFromStart, nullptr));
  EXPECT_EQ(stream.Read(2), "67");
  CHECK_OK(ctx_, KivSdFileLSeek64(ctx_, stream, -9, kFromEnd, nullptr));
  EXPECT_EQ(stream.Read(2), "12");
  uint32_t told = kUntouched;
  EXPECT_EQ(KivSdFileTell(nullptr, stream, &told), KIV_ST_OK);
  EXPECT_EQ(told, 3u);
}

TEST_F(FilePosition, BeforeTheStartFailsAndStaysUnchanged) {
  Fill("0123456789");
  Stream stream(path());
  stream.MoveTo(3);
  uint32_t position = kUntouched;
  CHECK_OUTCOME(ctx_, KivSdFileLSeek(ctx_, stream, -4, kFromHere, &position), KIV_ST_FILE_SEEK,
                EINVAL);
  EXPECT_EQ(position, 0xFFFFFFFFu);
  uint64_t position64 = kUntouched;
  CHECK_OUTCOME(ctx_, KivSdFileLSeek64(ctx_, stream, -11, kFromEnd, &position64), KIV_ST_FILE_SEEK,
                EINVAL);
  EXPECT_EQ(position64, kAllBits);
  EXPECT_EQ(KivSdFileLSeek(nullptr, stream, -4, kFromHere, nullptr), KIV_ST_FILE_SEEK);
  EXPECT_EQ(KivSdFileLSeek64(nullptr, stream, -4, kFromHere, nullptr), KIV_ST_FILE_SEEK);
  EXPECT_EQ(stream.Position(), 3u);
}

TEST_F(FilePosition, FailsForAnUnknownOrigin) {
  Stream stream(path());
  uint32_t position = kUntouched;
  CHECK_OUTCOME(ctx_, KivSdFileLSeek(ctx_, stream, 0, 3, &position), KIV_ST_FILE_SEEK, EINVAL);
  EXPECT_EQ(position, 0xFFFFFFFFu);
}

TEST_F(FilePosition, FailsForAClosedDescriptor) {
  const uint32_t closed = ClosedDescriptor(path());
  uint32_t position = kUntouched;
  CHECK_OUTCOME(ctx_, KivSdFileTell(ctx_, closed, &position), KIV_ST_FILE_TELL, EBADF);
  EXPECT_EQ(position, 0xFFFFFFFFu);
  EXPECT_EQ(KivSdFileTell(nullptr, closed, &position), KIV_ST_FILE_TELL);
  position = kUntouched;
  CHECK_OUTCOME(ctx_, KivSdFileLSeek(ctx_, closed, 0, 0, &position), KIV_ST_FILE_SEEK, EBADF);
  EXPECT_EQ(position, 0xFFFFFFFFu);
  uint64_t position64 = kUntouched;
  CHECK_OUTCOME(ctx_, KivSdFileLSeek64(ctx_, closed, 0, 0, &position64), KIV_ST_FILE_SEEK, EBADF);
  EXPECT_EQ(position64, kAllBits);
}

TEST_F(FilePosition, ReachesPastFourGibibytesIn64Bits) {
  Stream stream(path());
  const uint64_t far = 3 * kFourGiB + 5;
  uint64_t position = kUntouched;
  CHECK_OK(ctx_, KivSdFileLSeek64(ctx_, stream, static_cast<int64_t>(far), kFromStart, &position));
  EXPECT_EQ(position, far);
  stream.Write("x");
  CHECK_OK(ctx_, KivSdFileLSeek64(ctx_, stream, 0, kFromEnd, &position));
  EXPECT_EQ(position, far + 1);
  CHECK_OK(ctx_,
           KivSdFileLSeek64(ctx_, stream, -static_cast<int64_t>(kFourGiB), kFromHere, &position));
  EXPECT_EQ(position, far + 1 - kFourGiB);
  CHECK_OK(ctx_, KivSdFileLSeek64(ctx_, stream, -1, kFromEnd, nullptr));
  EXPECT_EQ(stream.Read(), "x");
}

TEST_F(FilePosition, ReachesTwoGibibytesIn32Bits) {
  Stream stream(path());
  uint32_t position = kUntouched;
  CHECK_OK(ctx_, KivSdFileLSeek(ctx_, stream, 0x7FFFFFFF, kFromStart, &position));
  EXPECT_EQ(position, 0x7FFFFFFFu);
  CHECK_OK(ctx_, KivSdFileTell(ctx_, stream, &position));
  EXPECT_EQ(position, 0x7FFFFFFFu);
}

// ---- Length and end ----

TEST_F(FileLength, IsCountedInBytes) {
  Context ctx;
  for (const char* content : {"", "x", "one\r\ntwo\r\n"}) {
    Fill(content);
    for (const uint32_t mode : {kBinary, kText}) {
      Stream stream(path(), mode);
      uint32_t length = kUntouched;
      CHECK_OK(ctx, KivSdFileLength(ctx, stream, &length));
      EXPECT_EQ(length, std::string(content).size());
      EXPECT_EQ(stream.Position(), 0u);
    }
  }
}

TEST_F(FileLength, FailsForAClosedDescriptor) {
  const uint32_t closed = ClosedDescriptor(path());
  uint32_t length = kUntouched;
  CHECK_OUTCOME(ctx_, KivSdFileLength(ctx_, closed, &length), KIV_ST_FILE_LENGTH, EBADF);
  EXPECT_EQ(length, 0xFFFFFFFFu);
  EXPECT_EQ(KivSdFileLength(nullptr, closed, &length), KIV_ST_FILE_LENGTH);
}

TEST_F(FileEnd, IsReported) {
  Fill("ab");
  Stream stream(path());
  for (const int expected : {0, 0, 1}) {
    uint8_t atEnd = 99;
    CHECK_OK(ctx_, KivSdFileEof(ctx_, stream, &atEnd));
    EXPECT_EQ(atEnd, expected);
    EXPECT_EQ(KivSdFileEof(nullptr, stream, &atEnd), KIV_ST_OK);
    stream.Read(1);
  }
}

TEST_F(FileEnd, OfAClosedDescriptorIsReportedAsUnknownWithoutFailure) {
  uint8_t atEnd = 99;
  CHECK_OK(ctx_, KivSdFileEof(ctx_, ClosedDescriptor(path()), &atEnd));
  EXPECT_EQ(atEnd, 0xFF);
}

TEST_F(FileEnd, CanBeSetBackAndForth) {
  Fill("0123456789");
  Stream stream(path());
  uint32_t newLength = kUntouched;
  uint32_t osError = kUntouched;
  CHECK_OK(ctx_, KivSdFileSetEndOfFile(ctx_, stream, 4, &newLength, &osError));
  EXPECT_EQ(newLength, 4u);
  EXPECT_EQ(osError, 0u);
  EXPECT_EQ(ContentOf(path()), "0123");
  CHECK_OK(ctx_, KivSdFileSetEndOfFile(ctx_, stream, 6, &newLength, &osError));
  EXPECT_EQ(newLength, 6u);
  EXPECT_EQ(ContentOf(path()), std::string("0123\0\0", 6));
  CHECK_OK(ctx_, KivSdFileSetEndOfFile(ctx_, stream, 0, &newLength, &osError));
  EXPECT_EQ(newLength, 0u);
  EXPECT_EQ(ContentOf(path()), "");
}

TEST_F(FileEnd, IsSetWithNullOutputsToo) {
  Fill("0123456789");
  Stream stream(path());
  EXPECT_EQ(KivSdFileSetEndOfFile(nullptr, stream, 3, nullptr, nullptr), KIV_ST_OK);
  EXPECT_EQ(ContentOf(path()), "012");
}

TEST_F(FileEnd, IsSetByTheLower32BitsOfTheFileAndTheLength) {
  Fill("0123456789");
  Stream stream(path());
  uint32_t newLength = kUntouched;
  CHECK_OK(ctx_, KivSdFileSetEndOfFile(ctx_, kFourGiB * 7 + stream, kFourGiB * 3 + 5, &newLength,
                                       nullptr));
  EXPECT_EQ(newLength, 5u);
  EXPECT_EQ(ContentOf(path()), "01234");

  const ScriptedImport resize("_chsize", {.result = 0});
  CHECK_OK(ctx_, KivSdFileSetEndOfFile(ctx_, kAllBits, 0xFFFFFFFF, &newLength, nullptr));
  EXPECT_EQ(newLength, 0xFFFFFFFFu);
  ASSERT_EQ(resize.calls().size(), 1u);
  EXPECT_EQ(static_cast<uint32_t>(resize.calls()[0][0]), 0xFFFFFFFFu);
  EXPECT_EQ(static_cast<uint32_t>(resize.calls()[0][1]), 0xFFFFFFFFu);
}

TEST_F(FileEnd, CannotBeSetInAFileOpenedForReading) {
  Fill("0123456789");
  uint32_t file = 0;
  ASSERT_EQ(KivSdFileOpen(nullptr, path().c_str(), kReadOnly, 0, &file), KIV_ST_OK);
  uint32_t newLength = kUntouched;
  uint32_t osError = kUntouched;
  EXPECT_EQ(KivSdFileSetEndOfFile(ctx_, file, 4, &newLength, &osError), KIV_ST_DIRECT_SET_END);
  EXPECT_EQ(ctx_.status(), KIV_ST_DIRECT_SET_END);
  EXPECT_EQ(ctx_.osError(), osError);
  EXPECT_TRUE(osError == EACCES || osError == EINVAL) << osError;  // Windows, or Wine
  EXPECT_EQ(newLength, 0u);
  EXPECT_EQ(KivSdFileSetEndOfFile(nullptr, file, 4, nullptr, nullptr), KIV_ST_DIRECT_SET_END);
  EXPECT_EQ(KivSdFileClose(nullptr, file), KIV_ST_OK);
  EXPECT_EQ(ContentOf(path()), "0123456789");
}

// ---- Flushing ----

TEST_F(FileFlush, Succeeds) {
  Stream stream(path());
  stream.Write("x");
  CHECK_OK(ctx_, KivSdFileFlush(ctx_, stream));
  EXPECT_EQ(KivSdFileFlush(nullptr, stream), KIV_ST_OK);
}

TEST_F(FileFlush, PassesTheDescriptorToTheRuntime) {
  const ScriptedImport commit("_commit", {.result = 0});
  CHECK_OK(ctx_, KivSdFileFlush(ctx_, 77));
  ASSERT_EQ(commit.calls().size(), 1u);
  EXPECT_EQ(static_cast<uint32_t>(commit.calls()[0][0]), 77u);
}

TEST_F(FileFlush, FailsForAClosedDescriptor) {
  const uint32_t closed = ClosedDescriptor(path());
  // Windows sets errno to EBADF; Wine does not change errno.
  errno = EBADF;
  CHECK_OUTCOME(ctx_, KivSdFileFlush(ctx_, closed), KIV_ST_FILE_FLUSH, EBADF);
  EXPECT_EQ(KivSdFileFlush(nullptr, closed), KIV_ST_FILE_FLUSH);
}

// ---- Arguments ----

TEST_F(FilePosition, LengthAndEndNeedAnOutput) {
  Stream stream(path());
  CHECK_ARGUMENT(ctx_, KivSdFileTell(ctx_, stream, nullptr));
  CHECK_ARGUMENT(ctx_, KivSdFileLength(ctx_, stream, nullptr));
  CHECK_ARGUMENT(ctx_, KivSdFileEof(ctx_, stream, nullptr));
  EXPECT_EQ(KivSdFileTell(nullptr, stream, nullptr), KIV_ST_ARGUMENT);
  EXPECT_EQ(KivSdFileLength(nullptr, stream, nullptr), KIV_ST_ARGUMENT);
  EXPECT_EQ(KivSdFileEof(nullptr, stream, nullptr), KIV_ST_ARGUMENT);
}

// ---- Kinds of transfer ----

TEST(FileTransferKind, IsDirectAndNoWaitForAllArguments) {
  Context ctx;
  for (const auto operation : {KivSdIsDirectIO, KivSdIsNoWaitIO}) {
    uint8_t flag = 99;
    CHECK_OK(ctx, operation(ctx, 0, kAllBits, &flag));
    EXPECT_EQ(flag, 1);
    flag = 99;
    EXPECT_EQ(operation(nullptr, 0, 0, &flag), KIV_ST_OK);
    EXPECT_EQ(flag, 1);
    CHECK_OK(ctx, operation(ctx, 0, 0, nullptr));
  }
}

}  // namespace
