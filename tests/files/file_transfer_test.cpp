// Reading and writing real files, in text and binary mode, at the position and at an offset.
#include <gtest/gtest.h>

#include <cerrno>
#include <string>

#include "kivsdu/kivsdu.h"
#include "support/context.h"
#include "support/guarded.h"
#include "support/stream.h"
#include "support/temporary_folder.h"

namespace {

using namespace kiv::test;

constexpr uint32_t kErrorEndOfFile = 38;
constexpr uint64_t kFourGiB = uint64_t{1} << 32;

class FileTransfer : public testing::Test {
 protected:
  std::string path() const { return folder_.Path("file"); }
  void Fill(const std::string& bytes) { folder_.Write("file", bytes); }

  // Returns the bytes of a read at an offset.
  std::string ReadAt(uint32_t file, uint32_t offset, uint32_t most) {
    std::string bytes(most, '?');
    uint32_t count = kUntouched;
    CHECK_OK(ctx_, KivSdFilePRead(ctx_, file, bytes.data(), offset, most, &count));
    EXPECT_LE(count, most);
    bytes.resize(count);
    return bytes;
  }

  void WriteAt(uint32_t file, uint32_t offset, const std::string& bytes) {
    uint32_t count = kUntouched;
    uint32_t osError = kUntouched;
    CHECK_OK(ctx_, KivSdFilePWrite(ctx_, file, bytes.data(), offset,
                                   static_cast<uint32_t>(bytes.size()), &count, &osError));
    EXPECT_EQ(count, bytes.size());
    EXPECT_EQ(osError, 0u);
  }

  TemporaryFolder folder_;
  Context ctx_;
};
using FileText = FileTransfer;
using FileAtOffset = FileTransfer;

// ---- At the position ----

TEST_F(FileTransfer, ContinuesWhereTheLastTransferEnded) {
  Stream stream(path());
  uint32_t count = kUntouched;
  CHECK_OK(ctx_, KivSdFileWrite(ctx_, stream, "abc", 3, &count));
  EXPECT_EQ(count, 3u);
  CHECK_OK(ctx_, KivSdFileWrite(ctx_, stream, "defg", 4, &count));
  EXPECT_EQ(count, 4u);
  EXPECT_EQ(ContentOf(path()), "abcdefg");

  stream.MoveTo(0);
  GuardedBytes buffer(5);
  CHECK_OK(ctx_, KivSdFileRead(ctx_, stream, buffer.data(), 5, &count));
  EXPECT_EQ(count, 5u);
  EXPECT_EQ(std::string(buffer.text(), 5), "abcde");
  CHECK_OK(ctx_, KivSdFileRead(ctx_, stream, buffer.data(), 5, &count));
  EXPECT_EQ(count, 2u);
  EXPECT_EQ(std::string(buffer.text(), 5), "fgcde");
}

TEST_F(FileTransfer, TakesTheEndMarkOfTextForAnyOtherByte) {
  const std::string bytes = "text\x1A";
  Fill(bytes);
  EXPECT_EQ(Stream(path()).Read(), bytes);
  EXPECT_EQ(ContentOf(path()), bytes);
}

TEST_F(FileTransfer, SucceedsAtTheEndWithACountOfZero) {
  Fill("x");
  Stream stream(path());
  char buffer[8];
  uint32_t count = kUntouched;
  CHECK_OK(ctx_, KivSdFileRead(ctx_, stream, buffer, sizeof buffer, &count));
  EXPECT_EQ(count, 1u);
  CHECK_OK(ctx_, KivSdFileRead(ctx_, stream, buffer, sizeof buffer, &count));
  EXPECT_EQ(count, 0u);
}

TEST_F(FileTransfer, OfZeroBytesDoesNothing) {
  Fill("x");
  Stream stream(path());
  char byte = '?';
  uint32_t count = kUntouched;
  CHECK_OK(ctx_, KivSdFileRead(ctx_, stream, &byte, 0, &count));
  EXPECT_EQ(count, 0u);
  count = kUntouched;
  CHECK_OK(ctx_, KivSdFileWrite(ctx_, stream, &byte, 0, &count));
  EXPECT_EQ(count, 0u);
  EXPECT_EQ(byte, '?');
  EXPECT_EQ(ContentOf(path()), "x");
}

TEST_F(FileTransfer, HandlesEveryByteInBinaryMode) {
  std::string bytes;
  for (int round = 0; round < 3; ++round) {
    for (int byte = 0; byte < 256; ++byte) bytes.push_back(static_cast<char>(byte));
  }
  Stream stream(path());
  stream.Write(bytes);
  EXPECT_EQ(ContentOf(path()), bytes);
  stream.MoveTo(0);
  EXPECT_EQ(stream.Read(10000), bytes);
}

TEST_F(FileTransfer, HandlesAMebibyteAtATime) {
  std::string bytes(1 << 20, 'a');
  for (size_t i = 0; i < bytes.size(); ++i) bytes[i] = static_cast<char>(i * i >> 7);
  Stream stream(path());
  stream.Write(bytes);
  stream.MoveTo(0);
  EXPECT_EQ(stream.Read(1 << 20), bytes);
}

TEST_F(FileTransfer, OfAClosedDescriptorFailsWithACountOfMinusOne) {
  const uint32_t closed = ClosedDescriptor(path());
  char byte = '?';
  uint32_t count = kUntouched;
  CHECK_OUTCOME(ctx_, KivSdFileRead(ctx_, closed, &byte, 1, &count), KIV_ST_FILE_READ, EBADF);
  EXPECT_EQ(count, 0xFFFFFFFFu);
  count = kUntouched;
  CHECK_OUTCOME(ctx_, KivSdFileWrite(ctx_, closed, &byte, 1, &count), KIV_ST_FILE_WRITE, EBADF);
  EXPECT_EQ(count, 0xFFFFFFFFu);
  EXPECT_EQ(KivSdFileRead(nullptr, closed, &byte, 1, &count), KIV_ST_FILE_READ);
  EXPECT_EQ(KivSdFileWrite(nullptr, closed, &byte, 1, &count), KIV_ST_FILE_WRITE);
}

TEST_F(FileTransfer, FailsIfTheFileIsNotOpenForIt) {
  Fill("content");
  uint32_t file = 0;
  ASSERT_EQ(KivSdFileOpen(nullptr, path().c_str(), kReadOnly, 0, &file), KIV_ST_OK);
  uint32_t count = kUntouched;
  Context ctx;
  EXPECT_EQ(KivSdFileWrite(ctx, file, "x", 1, &count), KIV_ST_FILE_WRITE);
  EXPECT_NE(ctx.osError(), 0u);
  EXPECT_EQ(count, 0xFFFFFFFFu);
  EXPECT_EQ(KivSdFileClose(nullptr, file), KIV_ST_OK);
}

// ---- Text ----

TEST_F(FileText, GetsACarriageReturnBeforeEachLineFeedWhenWritten) {
  Stream stream(path(), kText);
  stream.Write("one\ntwo\r\n\n");
  stream.Close();
  EXPECT_EQ(ContentOf(path()), "one\r\ntwo\r\r\n\r\n");
}

TEST_F(FileText, LosesTheCarriageReturnBeforeEachLineFeedWhenRead) {
  Fill("one\r\ntwo\r\r\nthree\rfour\n");
  Stream stream(path(), kText);
  EXPECT_EQ(stream.Read(), "one\ntwo\r\nthree\rfour\n");
}

TEST_F(FileText, EndsAtByte26) {
  Fill(
      "before\x1A"
      "after");
  Stream text(path(), kText);
  EXPECT_EQ(text.Read(), "before");
  Stream binary(path(), kBinary);
  EXPECT_EQ(binary.Read(),
            "before\x1A"
            "after");
}

TEST_F(FileText, IsReadInPiecesThatSplitALineEnd) {
  Fill("a\r\nb\rc\r\r\n\r\n");
  for (uint32_t most = 1; most <= 12; ++most) {
    SCOPED_TRACE(most);
    Stream stream(path(), kText);
    std::string all;
    for (std::string piece = stream.Read(most); !piece.empty(); piece = stream.Read(most)) {
      all += piece;
    }
    EXPECT_EQ(all, "a\nb\rc\r\n\n");
    EXPECT_EQ(stream.Position(), 11u);
  }
}

TEST_F(FileText, EndsWithACarriageReturnAtTheEndOfTheFile) {
  Fill("a\r");
  Stream stream(path(), kText);
  EXPECT_EQ(stream.Read(2), "a\r");
  EXPECT_EQ(stream.Read(2), "");
}

TEST_F(FileText, IsReadOnFromAPositionBehindItsEndMark) {
  Fill(
      "ab\x1A"
      "cd");
  Stream stream(path(), kText);
  EXPECT_EQ(stream.Read(), "ab");
  EXPECT_EQ(stream.Read(), "");
  stream.MoveTo(3);
  EXPECT_EQ(stream.Read(), "cd");
}

TEST_F(FileText, IsCountedInTheCallersBytesWhenWritten) {
  const std::string lines(20'000, '\n');
  Stream stream(path(), kText);
  uint32_t count = kUntouched;
  CHECK_OK(ctx_, KivSdFileWrite(ctx_, stream, lines.data(), 20'000, &count));
  EXPECT_EQ(count, 20'000u);
  EXPECT_EQ(stream.Position(), 40'000u);
  stream.MoveTo(0);
  EXPECT_EQ(stream.Read(50'000), lines);
}

TEST_F(FileText, IsTheDefaultMode) {
  Fill("one\r\n");
  Stream stream(path(), 0);
  EXPECT_EQ(stream.Read(), "one\n");
}

TEST_F(FileText, IsNotTranslatedAtAnOffset) {
  Fill("one\r\ntwo\r\n");
  Stream stream(path(), kText);
  EXPECT_EQ(ReadAt(stream, 2, 6), "e\r\ntwo");
  WriteAt(stream, 3, "\n\n");
  EXPECT_EQ(ContentOf(path()), "one\n\ntwo\r\n");
}

// ---- At an offset ----

TEST_F(FileAtOffset, ReadMovesThePositionBehindItsBytes) {
  Fill("0123456789");
  Stream stream(path());
  EXPECT_EQ(ReadAt(stream, 4, 3), "456");
  EXPECT_EQ(stream.Position(), 7u);
  EXPECT_EQ(stream.Read(2), "78");
  EXPECT_EQ(ReadAt(stream, 0, 1), "0");
  EXPECT_EQ(stream.Position(), 1u);
}

TEST_F(FileAtOffset, WriteMovesThePositionBehindItsBytes) {
  Fill("0123456789");
  Stream stream(path());
  WriteAt(stream, 3, "abc");
  EXPECT_EQ(stream.Position(), 6u);
  stream.Write("d");
  EXPECT_EQ(ContentOf(path()), "012abcd789");
}

TEST_F(FileAtOffset, WriteCanStartBehindTheEnd) {
  Fill("01");
  Stream stream(path());
  WriteAt(stream, 4, "x");
  EXPECT_EQ(ContentOf(path()), std::string("01\0\0x", 5));
}

TEST_F(FileAtOffset, ReadStopsAtTheEnd) {
  Fill("0123456789");
  Stream stream(path());
  EXPECT_EQ(ReadAt(stream, 7, 100), "789");
}

TEST_F(FileAtOffset, ReadAtTheEndFailsWithACountOfZero) {
  Fill("0123456789");
  Stream stream(path());
  char byte = '?';
  for (const uint32_t offset : {10u, 11u, 0xFFFFFFFFu}) {
    uint32_t count = kUntouched;
    CHECK_OUTCOME(ctx_, KivSdFilePRead(ctx_, stream, &byte, offset, 1, &count), KIV_ST_FILE_READ,
                  kErrorEndOfFile);
    EXPECT_EQ(count, 0u);
    EXPECT_EQ(byte, '?');
    EXPECT_EQ(KivSdFilePRead(nullptr, stream, &byte, offset, 1, &count), KIV_ST_FILE_READ);
  }
}

TEST_F(FileAtOffset, ReadAndWriteOfAClosedDescriptorHaveTheSameStatus) {
  const uint32_t closed = ClosedDescriptor(path());
  char byte = '?';
  uint32_t count = kUntouched;
  uint32_t osError = kUntouched;
  CHECK_OUTCOME(ctx_, KivSdFilePRead(ctx_, closed, &byte, 0, 1, &count), KIV_ST_FILE_READ, EBADF);
  EXPECT_EQ(count, 0u);
  count = kUntouched;
  CHECK_OUTCOME(ctx_, KivSdFilePWrite(ctx_, closed, &byte, 0, 1, &count, &osError),
                KIV_ST_FILE_READ, EBADF);
  EXPECT_EQ(count, 0u);
  EXPECT_EQ(osError, static_cast<uint32_t>(EBADF));
  EXPECT_EQ(KivSdFilePRead(nullptr, closed, &byte, 0, 1, &count), KIV_ST_FILE_READ);
  EXPECT_EQ(KivSdFilePWrite(nullptr, closed, &byte, 0, 1, &count, nullptr), KIV_ST_FILE_READ);
}

TEST_F(FileAtOffset, WriteAcceptsANullErrorOutput) {
  Stream stream(path());
  uint32_t count = kUntouched;
  CHECK_OK(ctx_, KivSdFilePWrite(ctx_, stream, "x", 0, 1, &count, nullptr));
  EXPECT_EQ(count, 1u);
  EXPECT_EQ(ContentOf(path()), "x");
}

// ---- Past 4 GiB, in sparse files ----

TEST_F(FileAtOffset, ReachesUpToFourGibibytesAndNoFurther) {
  Stream stream(path());
  WriteAt(stream, 0xFFFFFFFF, "ab");
  EXPECT_EQ(stream.Position(), kFourGiB + 1);
  stream.Write("cd");
  EXPECT_EQ(stream.Position(), kFourGiB + 3);

  EXPECT_EQ(ReadAt(stream, 0xFFFFFFFF, 100), "abcd");
  EXPECT_EQ(stream.Position(), kFourGiB + 3);
  EXPECT_EQ(ReadAt(stream, 0xFFFFFFFE, 2), std::string("\0a", 2));
  EXPECT_EQ(stream.Position(), kFourGiB);
  EXPECT_EQ(stream.Read(), "bcd");
  EXPECT_EQ(ReadAt(stream, 0, 1), std::string(1, '\0'));

  // From 2 GiB on a signed offset would be negative.
  WriteAt(stream, 0x80000000, "mid");
  EXPECT_EQ(stream.Position(), (uint64_t{1} << 31) + 3);
  EXPECT_EQ(ReadAt(stream, 0x7FFFFFFF, 5), std::string("\0mid\0", 5));
}

TEST_F(FileTransfer, ReachesFilesPastFourGibibytes) {
  Stream stream(path());
  const auto far = static_cast<int64_t>(5 * kFourGiB / 4 + 7);
  stream.MoveTo(far);
  stream.Write("far");
  stream.MoveTo(far);
  EXPECT_EQ(stream.Read(), "far");
  stream.MoveTo(far - static_cast<int64_t>(kFourGiB));
  EXPECT_EQ(stream.Read(3), std::string(3, '\0'));
}

// ---- Arguments ----

TEST_F(FileTransfer, NeedsABufferAndACountOutput) {
  Fill("content");
  Stream stream(path());
  char byte = '?';
  uint32_t count = kUntouched;
  uint32_t osError = kUntouched;
  CHECK_ARGUMENT(ctx_, KivSdFileRead(ctx_, stream, nullptr, 1, &count));
  CHECK_ARGUMENT(ctx_, KivSdFileRead(ctx_, stream, &byte, 1, nullptr));
  CHECK_ARGUMENT(ctx_, KivSdFileWrite(ctx_, stream, nullptr, 1, &count));
  CHECK_ARGUMENT(ctx_, KivSdFileWrite(ctx_, stream, &byte, 1, nullptr));
  CHECK_ARGUMENT(ctx_, KivSdFilePRead(ctx_, stream, nullptr, 0, 1, &count));
  CHECK_ARGUMENT(ctx_, KivSdFilePRead(ctx_, stream, &byte, 0, 1, nullptr));
  CHECK_ARGUMENT(ctx_, KivSdFilePWrite(ctx_, stream, nullptr, 0, 1, &count, nullptr));
  CHECK_ARGUMENT(ctx_, KivSdFilePWrite(ctx_, stream, &byte, 0, 1, nullptr, nullptr));
  EXPECT_EQ(KivSdFileRead(nullptr, stream, nullptr, 1, &count), KIV_ST_ARGUMENT);
  EXPECT_EQ(count, kUntouched);
  EXPECT_EQ(byte, '?');
  EXPECT_EQ(stream.Position(), 0u);
  EXPECT_EQ(ContentOf(path()), "content");

  CHECK_ARGUMENT(ctx_, KivSdFilePWrite(ctx_, stream, nullptr, 0, 1, &count, &osError));
  EXPECT_EQ(osError, 0u) << "must be cleared before the argument checks";
  osError = kUntouched;
  CHECK_ARGUMENT(ctx_, KivSdFilePWrite(ctx_, stream, &byte, 0, 1, nullptr, &osError));
  EXPECT_EQ(osError, 0u);
}

}  // namespace
