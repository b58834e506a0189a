// Files of blocks: reading back what was written, transfers under way, and failing transfers.
#include <gtest/gtest.h>

#include <algorithm>
#include <string>

#include "host_fixture.h"
#include "storage/page_file.h"
#include "support/import_patch.h"
#include "support/temporary_folder.h"

namespace cellhost {
namespace {

using kiv::test::Script;
using kiv::test::ScriptedImport;

constexpr Script kPassAll = {.passFirst = UINT32_MAX};
constexpr uint32_t kRecordArgument = 4;  // index of the completion record in ReadFile and WriteFile
constexpr uint32_t kManyPages = 3 * kTransfersMax + 2;

class PageFileTest : public testing::Test {
 protected:
  static StoredCell CellOf(uint32_t page, uint32_t at) {
    return {.place = page * 1000ull + at, .value = page + at / 8.0};
  }

  // Returns whether all blocks were written.
  bool WritePages(uint32_t count) {
    PageWriter writer;
    if (!writer.Make(path_.c_str(), count)) return false;
    for (uint32_t number = 0; number < count; ++number) {
      CellPage* page = writer.Room();
      if (page == nullptr) return false;
      ClearPage(page);
      for (uint32_t at = 0; at < kCellsInPage; ++at) page->cells[at] = CellOf(number, at);
      SealPage(page, number, kCellsInPage);
      if (!writer.Write()) return false;
    }
    return writer.Finish();
  }

  // Returns the number of blocks that were read and have the expected content.
  uint32_t ReadPages() {
    PageReader reader;
    if (!reader.Open(path_.c_str())) return 0;
    for (uint32_t number = 0; number < reader.pageCount(); ++number) {
      const CellPage* page = reader.Next();
      if (page == nullptr) return number;
      for (uint32_t at = 0; at < kCellsInPage; ++at) {
        EXPECT_EQ(page->cells[at].place, CellOf(number, at).place);
        EXPECT_EQ(page->cells[at].value, CellOf(number, at).value);
      }
    }
    return reader.pageCount();
  }

  test::InHost host_;
  kiv::test::TemporaryFolder folder_;
  std::string path_ = folder_.Path("pages");
};

TEST_F(PageFileTest, ReadsBackWhatWasWritten) {
  for (const uint32_t count : {1u, 7u, 8u, 9u, kManyPages}) {
    ASSERT_TRUE(WritePages(count));
    EXPECT_EQ(ReadPages(), count);
  }
}

TEST_F(PageFileTest, ShortensALongerFile) {
  ASSERT_TRUE(WritePages(kManyPages));
  ASSERT_TRUE(WritePages(2));
  EXPECT_EQ(ReadPages(), 2u);
}

TEST_F(PageFileTest, EightReadsAreUnderWayAheadOfTheFirst) {
  ASSERT_TRUE(WritePages(kManyPages));
  const ScriptedImport reads("ReadFile", kPassAll);
  PageReader reader;
  ASSERT_TRUE(reader.Open(path_.c_str()));
  for (uint32_t number = 0; number < kManyPages; ++number) {
    ASSERT_NE(reader.Next(), nullptr);
    EXPECT_EQ(reads.calls().size(), std::min(number + kTransfersMax, kManyPages));
  }
  for (const ScriptedImport::Arguments& call : reads.calls()) {
    EXPECT_NE(call[kRecordArgument], 0u) << "each read has a record";
  }
}

TEST_F(PageFileTest, EightWritesAreUnderWayBeforeTheFirstWait) {
  const ScriptedImport writes("WriteFile", kPassAll);
  const ScriptedImport waits("GetOverlappedResult", kPassAll);
  PageWriter writer;
  ASSERT_TRUE(writer.Make(path_.c_str(), kManyPages));
  for (uint32_t number = 0; number < kManyPages; ++number) {
    CellPage* page = writer.Room();
    ASSERT_NE(page, nullptr);
    EXPECT_EQ(waits.calls().size(), number < kTransfersMax ? 0 : number - kTransfersMax + 1);
    ClearPage(page);
    SealPage(page, number, 0);
    ASSERT_TRUE(writer.Write());
  }
  EXPECT_TRUE(writer.Finish());
  EXPECT_EQ(waits.calls().size(), kManyPages);
  for (const ScriptedImport::Arguments& call : writes.calls()) {
    EXPECT_NE(call[kRecordArgument], 0u) << "each write has a record";
  }
}

TEST_F(PageFileTest, FailedTransfersAreReportedWithTheirBlock) {
  ASSERT_TRUE(WritePages(kManyPages));
  for (const uint32_t block : {0u, 5u, 9u, kManyPages - 1}) {
    const std::string expected = std::string("block ").append(std::to_string(block)).append(" of");
    for (const char* function : {"ReadFile", "GetOverlappedResult"}) {
      testing::internal::CaptureStderr();
      {
        const ScriptedImport failing(
            function, {.result = 0, .error = 1117, .passFirst = block, .failCount = 1});
        EXPECT_LE(ReadPages(), block);
      }
      const std::string told = testing::internal::GetCapturedStderr();
      EXPECT_NE(told.find(expected), std::string::npos) << told;
      EXPECT_NE(told.find("OS error 1117"), std::string::npos) << told;
    }
    for (const char* function : {"WriteFile", "GetOverlappedResult"}) {
      testing::internal::CaptureStderr();
      {
        const ScriptedImport failing(
            function, {.result = 0, .error = 112, .passFirst = block, .failCount = 1});
        EXPECT_FALSE(WritePages(kManyPages));
      }
      const std::string told = testing::internal::GetCapturedStderr();
      EXPECT_NE(told.find(expected), std::string::npos) << told;
      EXPECT_NE(told.find("OS error 112"), std::string::npos) << told;
    }
    ASSERT_TRUE(WritePages(kManyPages));
  }
}

// The system reports success for a transfer of 0 bytes.
TEST_F(PageFileTest, AShortTransferIsAFailure) {
  ASSERT_TRUE(WritePages(3));
  testing::internal::CaptureStderr();
  {
    const ScriptedImport nothing("GetOverlappedResult", {.result = 1, .passFirst = 1});
    EXPECT_EQ(ReadPages(), 1u);
    EXPECT_FALSE(WritePages(3));
  }
  const std::string told = testing::internal::GetCapturedStderr();
  EXPECT_NE(told.find("ends inside of block 1"), std::string::npos) << told;
}

TEST_F(PageFileTest, MissingFileAndMemoryAreReported) {
  testing::internal::CaptureStderr();
  EXPECT_EQ(ReadPages(), 0u);
  EXPECT_NE(testing::internal::GetCapturedStderr().find("could not open"), std::string::npos);
  for (const char* function : {"VirtualAlloc", "CreateEventA", "SetEndOfFile"}) {
    testing::internal::CaptureStderr();
    {
      const ScriptedImport failing(function, {.result = 0, .error = 8});
      EXPECT_FALSE(WritePages(3)) << function;
    }
    EXPECT_NE(testing::internal::GetCapturedStderr(), "");
  }
  EXPECT_TRUE(WritePages(3));
}

}  // namespace
}  // namespace cellhost
