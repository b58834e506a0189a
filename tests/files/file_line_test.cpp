// Reading lines: every length of line with every size of buffer, and the calls of the runtime.
#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <string>
#include <vector>

#include "kivsdu/kivsdu.h"
#include "support/context.h"
#include "support/guard_watch.h"
#include "support/guarded.h"
#include "support/import_patch.h"
#include "support/stream.h"
#include "support/stubbed_import.h"
#include "support/temporary_folder.h"

namespace {

using namespace kiv::test;

constexpr uintptr_t kFailed = static_cast<uintptr_t>(-1);

class FileLine : public testing::Test {
 protected:
  std::string path() const { return folder_.Path("file"); }
  void Fill(const std::string& bytes) { folder_.Write("file", bytes); }

  // Reads a line of `length` bytes into a buffer of `sizeBytes`, and checks that it is terminated.
  std::string ReadLine(uint32_t file, uint32_t sizeBytes, size_t length) {
    GuardedBytes buffer(sizeBytes);
    CHECK_OK(ctx_, KivSdFileGets(ctx_, file, buffer.text(), sizeBytes));
    EXPECT_LT(length, sizeBytes);
    EXPECT_EQ(buffer.text()[length], '\0');
    return std::string(buffer.text(), length);
  }

  // Reads a file of these bytes to its end. Checks each piece, and the file's position after it.
  void ExpectPieces(const std::string& bytes, uint32_t sizeBytes) {
    SCOPED_TRACE(testing::PrintToString(bytes) + " in " + std::to_string(sizeBytes));
    Fill(bytes);
    Stream stream(path());
    size_t from = 0;
    while (from < bytes.size()) {
      const size_t feed = bytes.find('\n', from);
      const size_t lineEnd = feed == std::string::npos ? bytes.size() : feed + 1;
      const size_t to = std::min<size_t>(lineEnd, from + sizeBytes - 1);
      EXPECT_EQ(ReadLine(stream, sizeBytes, to - from), bytes.substr(from, to - from));
      EXPECT_EQ(stream.Position(), to);
      if (HasFailure()) return;
      from = to;
    }
    GuardedBytes buffer(sizeBytes);
    CHECK_OUTCOME(ctx_, KivSdFileGets(ctx_, stream, buffer.text(), sizeBytes), KIV_ST_FILE_END, 0u);
    EXPECT_EQ(stream.Position(), bytes.size());
  }

  TemporaryFolder folder_;
  Context ctx_;
};

// ---- Lines and buffers ----

TEST_F(FileLine, IsReadInPiecesThatFit) {
  const std::vector<std::string> contents = {
      "",
      "\n",
      "\n\n\n",
      "a",
      "abc",
      "abc\n",
      "abc\nd",
      "ab\ncdef\n\ng\n",
      "ab\r\ncd\r\n",
      "\r\r\n",
      "one line that is longer than any of the buffers\n",
      std::string("a\0b\nc\0\0\n\0", 9),
      "\xFF\x80\n\x1A\n",
  };
  for (const std::string& bytes : contents) {
    for (uint32_t sizeBytes = 2; sizeBytes <= 12; ++sizeBytes) ExpectPieces(bytes, sizeBytes);
    ExpectPieces(bytes, 100);
  }
}

TEST_F(FileLine, OfEveryLengthIsReadThroughABufferOfEightBytes) {
  for (size_t length = 0; length <= 24; ++length) {
    ExpectPieces(std::string(length, 'x') + "\nrest", 8);
    ExpectPieces(std::string(length, 'x'), 8);
  }
}

TEST_F(FileLine, ThatFillsTheBufferLeavesThePositionBehindTheLineFeed) {
  Fill("abc\ndef\n");
  Stream stream(path());
  EXPECT_EQ(ReadLine(stream, 5, 4), "abc\n");
  EXPECT_EQ(stream.Position(), 4u);
  EXPECT_EQ(ReadLine(stream, 5, 4), "def\n");
}

TEST_F(FileLine, WhoseLineFeedDoesNotFitIsReadInTwoPieces) {
  Fill("abc\ndef\n");
  Stream stream(path());
  EXPECT_EQ(ReadLine(stream, 4, 3), "abc");
  EXPECT_EQ(stream.Position(), 3u);
  EXPECT_EQ(ReadLine(stream, 4, 1), "\n");
  EXPECT_EQ(stream.Position(), 4u);
}

TEST_F(FileLine, IsReadFromThePosition) {
  Fill("abc\ndef\nghi\n");
  Stream stream(path());
  stream.MoveTo(6);
  EXPECT_EQ(ReadLine(stream, 100, 2), "f\n");
  EXPECT_EQ(stream.Position(), 8u);
}

TEST_F(FileLine, IsEmptyInABufferOfOneByteWithoutReading) {
  const ScriptedImport tell("_tell", {.result = kFailed});
  const ScriptedImport read("_read", {.result = kFailed});
  GuardedBytes buffer(1);
  CHECK_OK(ctx_, KivSdFileGets(ctx_, KIV_FILE_NONE, buffer.text(), 1));
  EXPECT_EQ(buffer.text()[0], '\0');
  EXPECT_EQ(tell.calls().size() + read.calls().size(), 0u);
}

TEST_F(FileLine, NeedsABufferWithRoom) {
  const ScriptedImport tell("_tell", {.result = 0});
  GuardedBytes buffer(4);
  CHECK_ARGUMENT(ctx_, KivSdFileGets(ctx_, 3, nullptr, 4));
  CHECK_ARGUMENT(ctx_, KivSdFileGets(ctx_, 3, nullptr, 1));
  CHECK_ARGUMENT(ctx_, KivSdFileGets(ctx_, 3, buffer.text(), 0));
  EXPECT_EQ(KivSdFileGets(nullptr, 3, nullptr, 4), KIV_ST_ARGUMENT);
  EXPECT_TRUE(buffer.IsAll(kSpoilt));
  EXPECT_TRUE(tell.calls().empty());
}

TEST_F(FileLine, NeedsNoContext) {
  Fill("ab\n");
  Stream stream(path());
  char buffer[8];
  EXPECT_EQ(KivSdFileGets(nullptr, stream, buffer, sizeof buffer), KIV_ST_OK);
  EXPECT_STREQ(buffer, "ab\n");
  EXPECT_EQ(KivSdFileGets(nullptr, stream, buffer, sizeof buffer), KIV_ST_FILE_END);
}

TEST_F(FileLine, InTextModeLeavesThePositionOneByteEarlyForEachDroppedCarriageReturn) {
  Fill("ab\r\ncd\r\n");
  Stream stream(path(), kText);
  EXPECT_EQ(ReadLine(stream, 100, 3), "ab\n");
  EXPECT_EQ(stream.Position(), 3u);
  EXPECT_EQ(ReadLine(stream, 100, 1), "\n");
  EXPECT_EQ(ReadLine(stream, 100, 3), "cd\n");
}

// ---- Calls of the runtime ----

TEST_F(FileLine, LeavesRoomForTheTerminator) {
  Fill("abc\ndef\n");
  Stream stream(path());
  stream.MoveTo(1);
  char buffer[16];
  const ScriptedImport read("_read", {.failCount = 0});
  const ScriptedImport seek("_lseek", {.failCount = 0});
  CHECK_OK(ctx_, KivSdFileGets(ctx_, stream, buffer, 6));
  ASSERT_EQ(read.calls().size(), 1u);
  EXPECT_EQ(static_cast<uint32_t>(read.calls()[0][0]), stream);
  EXPECT_EQ(read.calls()[0][1], reinterpret_cast<uintptr_t>(buffer));
  EXPECT_EQ(static_cast<uint32_t>(read.calls()[0][2]), 5u);
  ASSERT_EQ(seek.calls().size(), 1u);
  EXPECT_EQ(static_cast<uint32_t>(seek.calls()[0][0]), stream);
  EXPECT_EQ(static_cast<uint32_t>(seek.calls()[0][1]), 4u);
  EXPECT_EQ(static_cast<uint32_t>(seek.calls()[0][2]), kFromStart);
  EXPECT_STREQ(buffer, "bc\n");
}

TEST_F(FileLine, MovesThePositionEvenIfTheLineFeedIsTheLastByteRead) {
  Fill("abc\ndef\n");
  Stream stream(path());
  char buffer[16];
  const ScriptedImport seek("_lseek", {.failCount = 0});
  CHECK_OK(ctx_, KivSdFileGets(ctx_, stream, buffer, 5));
  ASSERT_EQ(seek.calls().size(), 1u);
  EXPECT_EQ(static_cast<uint32_t>(seek.calls()[0][1]), 4u);
}

TEST_F(FileLine, WithoutALineFeedDoesNotMoveThePositionBack) {
  Fill("abcdef");
  Stream stream(path());
  char buffer[16];
  const ScriptedImport seek("_lseek", {.result = kFailed});
  CHECK_OK(ctx_, KivSdFileGets(ctx_, stream, buffer, 4));
  EXPECT_STREQ(buffer, "abc");
  CHECK_OK(ctx_, KivSdFileGets(ctx_, stream, buffer, 16));
  EXPECT_STREQ(buffer, "def");
  EXPECT_TRUE(seek.calls().empty());
}

TEST_F(FileLine, FailsIfThePositionCannotBeReadOrMovedOrTheReadFails) {
  Fill("ab\ncd");
  Stream stream(path());
  char buffer[16];
  for (const char* call : {"_tell", "_read", "_lseek"}) {
    SCOPED_TRACE(call);
    const StubbedImport failing(call, StubbedImport::kFailed, EIO, 7777);
    CHECK_OUTCOME(ctx_, KivSdFileGets(ctx_, stream, buffer, sizeof buffer), KIV_ST_FILE_GETS, EIO);
    EXPECT_EQ(failing.calls(), 1u);
    stream.MoveTo(0);
    EXPECT_EQ(KivSdFileGets(nullptr, stream, buffer, sizeof buffer), KIV_ST_FILE_GETS);
    stream.MoveTo(0);
  }
}

TEST_F(FileLine, IsNotReadIfThePositionCannotBeRead) {
  const ScriptedImport tell("_tell", {.result = kFailed, .error = EBADF});
  const ScriptedImport read("_read", {.result = 1});
  char buffer[16];
  CHECK_OUTCOME(ctx_, KivSdFileGets(ctx_, 3, buffer, sizeof buffer), KIV_ST_FILE_GETS, EBADF);
  EXPECT_TRUE(read.calls().empty());
}

TEST_F(FileLine, FailsWithoutAnErrorIfTheCountIsNegative) {
  Stream stream(path());
  for (const intptr_t count : {intptr_t{-2}, intptr_t{INT32_MIN}}) {
    const StubbedImport odd("_read", count, EIO, 7777);
    GuardedBytes buffer(16);
    CHECK_OUTCOME(ctx_, KivSdFileGets(ctx_, stream, buffer.text(), 16), KIV_ST_FILE_GETS, 0u);
    EXPECT_TRUE(buffer.IsAll(kSpoilt));
  }
}

TEST_F(FileLine, FailsForAClosedDescriptor) {
  char buffer[16];
  CHECK_OUTCOME(ctx_, KivSdFileGets(ctx_, ClosedDescriptor(path()), buffer, sizeof buffer),
                KIV_ST_FILE_GETS, EBADF);
}

TEST_F(FileLine, RunsTheGuardForEachOperation) {
  Fill("ab\ncd");
  Stream stream(path());
  char buffer[16];
  GuardWatch guard;
  CHECK_OK(ctx_, KivSdFileGets(ctx_, stream, buffer, 1));
  EXPECT_EQ(guard.TakeRuns(), 1u) << "reads nothing";
  CHECK_OK(ctx_, KivSdFileGets(ctx_, stream, buffer, 16));
  EXPECT_EQ(guard.TakeRuns(), 3u) << "reads and moves back";
  CHECK_OK(ctx_, KivSdFileGets(ctx_, stream, buffer, 16));
  EXPECT_EQ(guard.TakeRuns(), 2u) << "only reads";
}

}  // namespace
