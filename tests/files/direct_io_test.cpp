// Direct I/O on real files: blocks, positions, sizes, sharing, and blocking transfers.
#include <gtest/gtest.h>

#include <filesystem>
#include <functional>
#include <string>

#include "kivsdu/kivsdu.h"
#include "support/context.h"
#include "support/direct_io.h"
#include "support/guard_watch.h"
#include "support/os_errors.h"
#include "support/temporary_folder.h"
#include "support/wine.h"

namespace {

using kiv::test::Blocks;
using kiv::test::Context;
using kiv::test::DirectFile;
using kiv::test::GuardWatch;
using kiv::test::kBlockBytes;
using kiv::test::kOpenAlways;
using kiv::test::kOpenExisting;
using kiv::test::kOsBadArgument;
using kiv::test::kOsBadHandle;
using kiv::test::kOsNegativePosition;
using kiv::test::kOsNotFound;
using kiv::test::kOsSharingViolation;
using kiv::test::kReadAndWrite;
using kiv::test::kShareAll;
using kiv::test::kToRead;
using kiv::test::TemporaryFolder;

constexpr uint32_t kUntouched = 4711;
constexpr uint32_t kErrorEndOfFile = 38;
constexpr uint32_t kBlocksOf2GiB = 262144;
constexpr uint32_t kBlocksOf4GiB = 524288;

class DirectIO : public testing::Test {
 protected:
  std::string Path() const { return folder_.Path("blocks"); }
  uint64_t Size() const { return std::filesystem::file_size(Path()); }
  void Write(const std::string& bytes) const { folder_.Write("blocks", bytes); }

  Context ctx_;

 private:
  TemporaryFolder folder_;
};

// ---- Making and opening ----

TEST_F(DirectIO, CreateMakesAnEmptyFileAndLeavesItClosed) {
  CHECK_OK(ctx_, KivSdDirectIOFileCreate(ctx_, Path().c_str()));
  EXPECT_EQ(Size(), 0u);
  uint32_t file = 0;
  CHECK_OK(ctx_, KivSdDirectIOFileOpen(ctx_, Path().c_str(), kReadAndWrite, 0, kOpenExisting,
                                       nullptr, 0, &file));
  CHECK_OK(ctx_, KivSdDirectIOFileClose(ctx_, file));
}

TEST_F(DirectIO, CreateKeepsTheContentOfAnExistingFile) {
  Write(std::string(10000, 'x'));
  CHECK_OK(ctx_, KivSdDirectIOFileCreate(ctx_, Path().c_str()));
  EXPECT_EQ(Size(), 10000u);
}

TEST_F(DirectIO, CreateSharesTheFileOnlyInFailoverMode) {
  const DirectFile holder(Path());
  CHECK_OUTCOME(ctx_, KivSdDirectIOFileCreate(ctx_, Path().c_str()), KIV_ST_FILE_CREATE,
                kOsSharingViolation);
  const GuardWatch failover;
  CHECK_OK(ctx_, KivSdDirectIOFileCreate(ctx_, Path().c_str()));
}

TEST_F(DirectIO, OpenOfAMissingFileStoresNoFile) {
  uint32_t file[2] = {kUntouched, kUntouched};
  CHECK_OUTCOME(ctx_,
                KivSdDirectIOFileOpen(ctx_, Path().c_str(), kReadAndWrite, 0, kOpenExisting,
                                      nullptr, 0, &file[0]),
                KIV_ST_FILE_CREATE, kOsNotFound);
  EXPECT_EQ(file[0], KIV_DIRECTIO_NONE);
  EXPECT_EQ(file[1], kUntouched);
}

TEST_F(DirectIO, OpenStores32BitsOfTheHandle) {
  uint32_t file[2] = {kUntouched, kUntouched};
  CHECK_OK(ctx_, KivSdDirectIOFileOpen(ctx_, Path().c_str(), kReadAndWrite, 0, kOpenAlways, nullptr,
                                       0, &file[0]));
  EXPECT_NE(file[0], KIV_DIRECTIO_NONE);
  EXPECT_EQ(file[1], kUntouched);
  CHECK_OK(ctx_, KivSdDirectIOFileClose(ctx_, file[0]));
}

TEST_F(DirectIO, OpenReportsASharingViolation) {
  const DirectFile holder(Path());
  uint32_t file = kUntouched;
  const auto open = [&] {
    return KivSdDirectIOFileOpen(ctx_, Path().c_str(), kToRead, 0, kOpenExisting, nullptr, 0,
                                 &file);
  };
  CHECK_OUTCOME(ctx_, open(), KIV_ST_FILE_SHARING, kOsSharingViolation);
  EXPECT_EQ(file, KIV_DIRECTIO_NONE);
  const GuardWatch failover;  // failover mode overrides the share mode
  CHECK_OK(ctx_, open());
  CHECK_OK(ctx_, KivSdDirectIOFileClose(ctx_, file));
}

TEST_F(DirectIO, CloseFailsTheSecondTime) {
  uint32_t file = 0;
  CHECK_OK(ctx_, KivSdDirectIOFileOpen(ctx_, Path().c_str(), kReadAndWrite, 0, kOpenAlways, nullptr,
                                       0, &file));
  CHECK_OK(ctx_, KivSdDirectIOFileClose(ctx_, file));
  CHECK_OUTCOME(ctx_, KivSdDirectIOFileClose(ctx_, file), KIV_ST_FILE_CLOSE, kOsBadHandle);
}

TEST_F(DirectIO, RemoveRemovesTheFile) {
  CHECK_OK(ctx_, KivSdDirectIOFileCreate(ctx_, Path().c_str()));
  CHECK_OK(ctx_, KivSdDirectIOFileRemove(ctx_, Path().c_str()));
  EXPECT_FALSE(std::filesystem::exists(Path()));
  CHECK_OUTCOME(ctx_, KivSdDirectIOFileRemove(ctx_, Path().c_str()), KIV_ST_FILE_REMOVE,
                kOsNotFound);
}

// ---- Blocking transfers ----

TEST_F(DirectIO, BlocksAreReadWhereTheyWereWritten) {
  DirectFile file(Path());
  for (const uint32_t block : {2u, 0u, 5u}) file.Write(block, block);
  EXPECT_EQ(Size(), 6u * kBlockBytes);
  for (const uint32_t block : {5u, 0u, 2u}) EXPECT_TRUE(file.Holds(block, block)) << block;
}

TEST_F(DirectIO, OneTransferMovesSeveralBlocks) {
  constexpr uint32_t kCount = 100;
  const DirectFile file(Path());
  Blocks written(kCount);
  for (uint32_t i = 0; i < kCount; ++i) written.Fill(i, i);
  uint32_t count = 0;
  CHECK_OK(ctx_, KivSdDirectIOFileWrite(ctx_, file, 7, written.At(0), kCount, nullptr, &count));
  EXPECT_EQ(count, kCount);
  EXPECT_EQ(Size(), (7u + kCount) * kBlockBytes);

  Blocks read(kCount);
  CHECK_OK(ctx_, KivSdDirectIOFileRead(ctx_, file, 7, read.At(0), kCount, nullptr, &count));
  EXPECT_EQ(count, kCount);
  for (uint32_t i = 0; i < kCount; ++i) EXPECT_TRUE(read.Holds(i, i)) << i;
}

TEST_F(DirectIO, ARecordsOffsetIsUsedOnAFileThatIsNotOverlapped) {
  DirectFile file(Path());
  file.Write(0, 0);
  file.Write(1, 1);
  Blocks blocks(1);
  uint32_t count = kUntouched;
  KivSdNoWaitCb record = {};
  record.offsetHigh = kUntouched;
  CHECK_OK(ctx_, KivSdDirectIOFileRead(ctx_, file, 1, blocks.At(0), 1, &record, &count));
  EXPECT_EQ(count, 1u);
  EXPECT_TRUE(blocks.Holds(0, 1));
  EXPECT_EQ(record.offsetLow, kBlockBytes);
  EXPECT_EQ(record.offsetHigh, 0u);

  blocks.Fill(0, 4);
  CHECK_OK(ctx_, KivSdDirectIOFileWrite(ctx_, file, 4, blocks.At(0), 1, &record, &count));
  EXPECT_EQ(count, 1u);
  EXPECT_EQ(record.offsetLow, 4 * kBlockBytes);
  EXPECT_TRUE(file.Holds(4, 4));
  CHECK_OK(ctx_, KivSdDirectIONoWaitCbsTerm(ctx_, &record, 1));
}

TEST_F(DirectIO, AReadMovesThePositionToItsEnd) {
  DirectFile file(Path());
  for (uint32_t block = 0; block < 4; ++block) file.Write(block, block);
  uint32_t count = 0;
  uint32_t position = kUntouched;
  CHECK_OK(ctx_, KivSdDirectIOFilePointerSet(ctx_, file, 3, 0, &position));
  EXPECT_TRUE(file.Holds(1, 1));
  CHECK_OK(ctx_, KivSdDirectIOFilePointerGet(ctx_, file, &position));
  EXPECT_EQ(position, 2u);
  Blocks blocks(2);
  CHECK_OK(ctx_, KivSdDirectIOFileRead(ctx_, file, 0, blocks.At(0), 1, nullptr, &count));
  EXPECT_TRUE(blocks.Holds(0, 0));
}

TEST_F(DirectIO, AReadThatPassesTheEndCountsWholeBlocks) {
  Write(std::string(3 * kBlockBytes + kBlockBytes / 2, 'x'));
  const DirectFile file(Path());
  Blocks blocks(3);
  uint32_t count = kUntouched;
  CHECK_OK(ctx_, KivSdDirectIOFileRead(ctx_, file, 1, blocks.At(0), 3, nullptr, &count));
  EXPECT_EQ(count, 2u);
  EXPECT_EQ(blocks.At(2)[0], 'x') << "the buffer must hold the partial block too";
  EXPECT_EQ(blocks.At(2)[kBlockBytes / 2], 0);
}

TEST_F(DirectIO, AReadBehindTheEndSucceedsWithACountOfZero) {
  Write(std::string(kBlockBytes, 'x'));
  const DirectFile file(Path());
  Blocks blocks(1);
  for (const uint32_t block : {1u, 2u, 1000u}) {
    uint32_t count = kUntouched;
    CHECK_OK(ctx_, KivSdDirectIOFileRead(ctx_, file, block, blocks.At(0), 1, nullptr, &count));
    EXPECT_EQ(count, 0u);
  }
}

TEST_F(DirectIO, AReadWithARecordBehindTheEndReportsTheEnd) {
  Write(std::string(kBlockBytes, 'x'));
  const DirectFile file(Path());
  Blocks blocks(1);
  KivSdNoWaitCb record = {};
  uint32_t count = kUntouched;
  CHECK_OUTCOME(ctx_, KivSdDirectIOFileRead(ctx_, file, 1, blocks.At(0), 1, &record, &count),
                KIV_ST_FILE_END, kErrorEndOfFile);
  EXPECT_EQ(count, 0u);
  CHECK_OK(ctx_, KivSdDirectIONoWaitCbsTerm(ctx_, &record, 1));
}

TEST_F(DirectIO, AnUnalignedBufferIsRefused) {
  if (kiv::test::IsOnWine()) {
    GTEST_SKIP() << "Windows documents the alignment of unbuffered transfers; Wine buffers them";
  }
  const DirectFile file(Path());
  Blocks blocks(2);
  uint32_t count = kUntouched;
  CHECK_OUTCOME(ctx_, KivSdDirectIOFileWrite(ctx_, file, 0, blocks.At(0) + 1, 1, nullptr, &count),
                KIV_ST_FILE_WRITE, kOsBadArgument);
  EXPECT_EQ(count, 0u);
}

TEST_F(DirectIO, ATransferOfZeroBlocksSucceeds) {
  const DirectFile file(Path());
  Blocks blocks(1);
  for (const uint32_t none : {0u, kBlocksOf4GiB}) {
    uint32_t count = kUntouched;
    CHECK_OK(ctx_, KivSdDirectIOFileWrite(ctx_, file, 0, blocks.At(0), none, nullptr, &count));
    EXPECT_EQ(count, 0u);
    count = kUntouched;
    CHECK_OK(ctx_, KivSdDirectIOFileRead(ctx_, file, 0, blocks.At(0), none, nullptr, &count));
    EXPECT_EQ(count, 0u);
  }
  EXPECT_EQ(Size(), 0u);
}

// ---- The limits of 32 bits ----

TEST_F(DirectIO, BlockNumbersWrapAt4GiB) {
  DirectFile file(Path());
  file.Write(kBlocksOf4GiB, 70);
  file.Write(kBlocksOf4GiB + 1, 71);
  EXPECT_EQ(Size(), 2u * kBlockBytes);
  EXPECT_TRUE(file.Holds(0, 70));
  EXPECT_TRUE(file.Holds(1, 71));
  EXPECT_TRUE(file.Holds(kBlocksOf4GiB + 1, 71));
  EXPECT_TRUE(file.Holds(2 * kBlocksOf4GiB, 70));

  Blocks blocks(1);
  KivSdNoWaitCb record = {};
  uint32_t count = 0;
  CHECK_OK(ctx_,
           KivSdDirectIOFileRead(ctx_, file, kBlocksOf4GiB + 1, blocks.At(0), 1, &record, &count));
  EXPECT_TRUE(blocks.Holds(0, 71));
  CHECK_OK(ctx_, KivSdDirectIONoWaitCbsTerm(ctx_, &record, 1));
}

TEST_F(DirectIO, AReadFrom2GiBOnNeedsARecord) {
  DirectFile file(Path());
  Blocks blocks(1);
  uint32_t count = kUntouched;
  for (const uint32_t block : {kBlocksOf2GiB, kBlocksOf4GiB - 1}) {
    SCOPED_TRACE(block);
    file.Write(block, block);  // a write always uses a record
    count = kUntouched;
    CHECK_OUTCOME(ctx_, KivSdDirectIOFileRead(ctx_, file, block, blocks.At(0), 1, nullptr, &count),
                  KIV_ST_DIRECT_POINTER_SET, kOsNegativePosition);
    EXPECT_EQ(count, 0u);

    KivSdNoWaitCb record = {};
    CHECK_OK(ctx_, KivSdDirectIOFileRead(ctx_, file, block, blocks.At(0), 1, &record, &count));
    EXPECT_EQ(count, 1u);
    EXPECT_TRUE(blocks.Holds(0, block));
    CHECK_OK(ctx_, KivSdDirectIONoWaitCbsTerm(ctx_, &record, 1));
  }
  EXPECT_EQ(Size(), uint64_t{1} << 32);
  CHECK_OK(ctx_,
           KivSdDirectIOFileRead(ctx_, file, kBlocksOf2GiB - 1, blocks.At(0), 1, nullptr, &count));
  EXPECT_EQ(count, 1u) << "the last block that needs no record";
}

// ---- Positions and sizes ----

TEST_F(DirectIO, PositionsCountFromTheBeginningThePositionAndTheEnd) {
  const DirectFile file(Path());
  uint32_t size = 0;
  CHECK_OK(ctx_, KivSdDirectIOFileSetEndOfFile(ctx_, file, 10, &size));
  struct {
    uint32_t blocks;
    uint32_t method;
    uint32_t position;
  } const moves[] = {
      {3, 0, 3},
      {4, 1, 7},
      {static_cast<uint32_t>(-2), 1, 5},
      {0, 1, 5},
      {0, 2, 10},
      {static_cast<uint32_t>(-1), 2, 9},
      {2, 2, 12},  // past the end
      {0, 0, 0},
      {kBlocksOf4GiB + 1, 0, 1},  // wraps around
      {kBlocksOf2GiB - 1, 0, kBlocksOf2GiB - 1},
  };
  for (const auto& move : moves) {
    SCOPED_TRACE(testing::Message() << move.blocks << " by method " << move.method);
    uint32_t position = kUntouched;
    CHECK_OK(ctx_, KivSdDirectIOFilePointerSet(ctx_, file, move.blocks, move.method, &position));
    EXPECT_EQ(position, move.position);
    position = kUntouched;
    CHECK_OK(ctx_, KivSdDirectIOFilePointerGet(ctx_, file, &position));
    EXPECT_EQ(position, move.position);
  }
}

TEST_F(DirectIO, PositionsBeforeTheBeginningAreRefused) {
  const DirectFile file(Path());
  for (const uint32_t blocks : {static_cast<uint32_t>(-1), kBlocksOf2GiB}) {
    uint32_t position = kUntouched;
    CHECK_OUTCOME(ctx_, KivSdDirectIOFilePointerSet(ctx_, file, blocks, 0, &position),
                  KIV_ST_DIRECT_POINTER_SET, kOsNegativePosition);
    EXPECT_EQ(position, 0u);
  }
}

TEST_F(DirectIO, PositionsWithAnUnknownMethodAreRefused) {
  const DirectFile file(Path());
  uint32_t position = 0;
  CHECK_OK(ctx_, KivSdDirectIOFilePointerSet(ctx_, file, 2, 0, &position));
  for (const uint32_t method : {3u, 0xFFFFFFFFu}) {
    position = kUntouched;
    EXPECT_EQ(KivSdDirectIOFilePointerSet(ctx_, file, 1, method, &position),
              KIV_ST_DIRECT_POINTER_SET);
    EXPECT_EQ(ctx_.status(), KIV_ST_DIRECT_POINTER_SET);
    EXPECT_NE(ctx_.osError(), 0u);
    EXPECT_EQ(position, 0u);
  }
  CHECK_OK(ctx_, KivSdDirectIOFilePointerGet(ctx_, file, &position));
  EXPECT_EQ(position, 2u);
}

TEST_F(DirectIO, SizesCountWholeBlocks) {
  struct {
    size_t bytes;
    uint32_t blocks;
  } const sizes[] = {{0, 0}, {8191, 0}, {8192, 1}, {10000, 1}, {16383, 1}, {16384, 2}};
  for (const auto& size : sizes) {
    SCOPED_TRACE(size.bytes);
    Write(std::string(size.bytes, 'x'));
    const DirectFile file(Path());
    uint32_t blocks = kUntouched;
    CHECK_OK(ctx_, KivSdDirectIOFileSize(ctx_, file, &blocks));
    EXPECT_EQ(blocks, size.blocks);
  }
}

TEST_F(DirectIO, SizesWrapAroundAt4GiB) {
  Write("");
  std::filesystem::resize_file(Path(), (uint64_t{1} << 32) + 3 * kBlockBytes);
  const DirectFile file(Path());
  uint32_t blocks = kUntouched;
  CHECK_OK(ctx_, KivSdDirectIOFileSize(ctx_, file, &blocks));
  EXPECT_EQ(blocks, 3u);
}

TEST_F(DirectIO, ASizeWithAllBitsSetIsReportedAsAFailure) {
  Write("");
  std::filesystem::resize_file(Path(), (uint64_t{1} << 32) - 1);
  const DirectFile file(Path());
  uint32_t blocks = kUntouched;
  EXPECT_EQ(KivSdDirectIOFileSize(ctx_, file, &blocks), KIV_ST_FILE_LENGTH);
  EXPECT_EQ(ctx_.status(), KIV_ST_FILE_LENGTH);
  EXPECT_EQ(blocks, 0u);
}

TEST_F(DirectIO, TheEndIsSetInBlocksAndThePositionMovesThere) {
  DirectFile file(Path());
  file.Write(0, 0);
  for (const uint32_t blocks : {5u, 2u, 0u, 3u, kBlocksOf4GiB + 4}) {
    SCOPED_TRACE(blocks);
    uint32_t size = kUntouched;
    CHECK_OK(ctx_, KivSdDirectIOFileSetEndOfFile(ctx_, file, blocks, &size));
    EXPECT_EQ(size, blocks % kBlocksOf4GiB);
    EXPECT_EQ(Size(), uint64_t{blocks % kBlocksOf4GiB} * kBlockBytes);
    uint32_t position = kUntouched;
    CHECK_OK(ctx_, KivSdDirectIOFilePointerGet(ctx_, file, &position));
    EXPECT_EQ(position, blocks % kBlocksOf4GiB);
  }
}

TEST_F(DirectIO, TheEndCannotBeSetPast2GiB) {
  const DirectFile file(Path());
  uint32_t size = kUntouched;
  CHECK_OUTCOME(ctx_, KivSdDirectIOFileSetEndOfFile(ctx_, file, kBlocksOf2GiB, &size),
                KIV_ST_DIRECT_POINTER_SET, kOsNegativePosition);
  EXPECT_EQ(size, 0u);
  EXPECT_EQ(Size(), 0u);
}

TEST_F(DirectIO, ChangingTheSizeTakesADescriptor) {
  uint32_t descriptor = 0;
  ASSERT_EQ(KivSdFileCreate(nullptr, Path().c_str(), 0x180, &descriptor), KIV_ST_OK);
  for (const uint32_t blocks : {4u, 1u, 0u, 6u}) {
    uint32_t size = kUntouched;
    CHECK_OK(ctx_, KivSdDirectIOFileChangeSize(ctx_, descriptor, blocks, &size));
    EXPECT_EQ(size, blocks);
    EXPECT_EQ(Size(), uint64_t{blocks} * kBlockBytes);
  }
  // The count of bytes wraps around, but the returned size does not.
  uint32_t size = kUntouched;
  CHECK_OK(ctx_, KivSdDirectIOFileChangeSize(ctx_, descriptor, kBlocksOf4GiB + 2, &size));
  EXPECT_EQ(size, kBlocksOf4GiB + 2);
  EXPECT_EQ(Size(), 2u * kBlockBytes);
  EXPECT_EQ(KivSdFileClose(nullptr, descriptor), KIV_ST_OK);
}

// ---- The lease guard ----

struct Operation {
  const char* name;
  std::function<uint32_t(KivSdContext*)> call;  // fails because of its arguments
  uint32_t runs;                                // expected runs of the guard
};

// The arguments are bad in every operation that checks them, which shows that the guard runs first.
const Operation kOperations[] = {
    {"Create", [](KivSdContext* ctx) { return KivSdDirectIOFileCreate(ctx, nullptr); }, 1},
    {"Open",
     [](KivSdContext* ctx) {
       return KivSdDirectIOFileOpen(ctx, nullptr, 0, 0, 0, nullptr, 0, nullptr);
     },
     1},
    {"Close", [](KivSdContext* ctx) { return KivSdDirectIOFileClose(ctx, 0x12344); }, 0},
    {"Remove", [](KivSdContext* ctx) { return KivSdDirectIOFileRemove(ctx, nullptr); }, 1},
    {"Read",
     [](KivSdContext* ctx) {
       return KivSdDirectIOFileRead(ctx, 0, 0, nullptr, 0, nullptr, nullptr);
     },
     1},
    {"Write",
     [](KivSdContext* ctx) {
       return KivSdDirectIOFileWrite(ctx, 0, 0, nullptr, 0, nullptr, nullptr);
     },
     1},
    {"Wait", [](KivSdContext* ctx) { return KivSdDirectIOWait(ctx, 0, nullptr, nullptr); }, 1},
    {"PointerSet",
     [](KivSdContext* ctx) { return KivSdDirectIOFilePointerSet(ctx, 0, 0, 0, nullptr); }, 1},
    {"PointerGet", [](KivSdContext* ctx) { return KivSdDirectIOFilePointerGet(ctx, 0, nullptr); },
     1},
    {"Size", [](KivSdContext* ctx) { return KivSdDirectIOFileSize(ctx, 0, nullptr); }, 1},
    {"SetEndOfFile",
     [](KivSdContext* ctx) { return KivSdDirectIOFileSetEndOfFile(ctx, 0, 0, nullptr); }, 1},
    {"ChangeSize",
     [](KivSdContext* ctx) { return KivSdDirectIOFileChangeSize(ctx, 0, 0, nullptr); }, 1},
    {"NoWaitCbsInit", [](KivSdContext* ctx) { return KivSdDirectIONoWaitCbsInit(ctx, nullptr, 1); },
     1},
    {"NoWaitCbsTerm", [](KivSdContext* ctx) { return KivSdDirectIONoWaitCbsTerm(ctx, nullptr, 1); },
     0},
};

TEST(DirectIOGuard, RunsOnceBeforeTheArgumentChecks) {
  for (const Operation& operation : kOperations) {
    SCOPED_TRACE(operation.name);
    GuardWatch guard;
    EXPECT_NE(operation.call(nullptr), KIV_ST_OK);
    EXPECT_EQ(guard.TakeRuns(), operation.runs);
  }
}

TEST(DirectIOGuard, DoesNotRunOutsideFailoverMode) {
  GuardWatch guard(0);
  for (const Operation& operation : kOperations) static_cast<void>(operation.call(nullptr));
  EXPECT_EQ(guard.TakeRuns(), 0u);
}

TEST(DirectIOGuard, IsFollowedByTheArgumentErrorInTheRecord) {
  Context ctx;
  for (const Operation& operation : kOperations) {
    SCOPED_TRACE(operation.name);
    if (operation.name == std::string("Close")) continue;  // does not check its arguments
    if (operation.name == std::string("Remove")) continue;
    CHECK_ARGUMENT(ctx, operation.call(ctx));
  }
}

}  // namespace
