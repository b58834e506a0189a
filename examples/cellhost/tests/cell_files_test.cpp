// Cells in files: from one start to the next, with and without an end in between; torn, damaged
// and foreign files; writes that fail.
#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "cell_store.h"
#include "storage/journal_record.h"
#include "support/import_patch.h"

namespace cellhost {
namespace {

using kiv::test::ScriptedImport;
using test::CellStore;
using test::Contains;
using test::Numbered;

constexpr uint32_t kManyRows = 20 * kCellsInPage;  // more blocks than transfers at once
constexpr char kNotStored[] =
    "nothing stored: the journal cannot be written; see what the server said";

class CellFilesTest : public test::CellStoreTest {
 protected:
  // Stores some cells as a process that is killed; what the cells then are.
  std::string StoreAndDie(uint32_t puts) {
    CellStore store;
    EXPECT_TRUE(store.Open(Folder()));
    for (uint32_t at = 0; at < puts; ++at) EXPECT_EQ(store.Put(at, at + 1, 100 + at), "");
    return store.Everything();
  }

  std::string journal_ = Path("cells.jnl");
  std::string pages_ = Path("cells.pag");
  std::string mark_ = Path("cells.mrk");
};

TEST_F(CellFilesTest, AreMadeFromTheFactsAndThenTakeTheirPlace) {
  std::string atFirst;
  {
    CellStore store;
    ASSERT_TRUE(store.Open(Folder()));
    EXPECT_FALSE(Contains(store.Everything(), "no data"));
    atFirst = store.Everything();
    EXPECT_EQ(store.files().pageCount(), 2u);
  }
  EXPECT_EQ(Bytes(pages_).size(), 2 * kPageBytes);
  EXPECT_EQ(Bytes(journal_).size(), 0u);
  EXPECT_EQ(Reopen(), atFirst);
}

TEST_F(CellFilesTest, HaveAllOfManyBlocks) {
  std::string atFirst;
  {
    CellStore store(kManyRows);
    ASSERT_TRUE(store.Open(Folder()));
    EXPECT_EQ(store.files().pageCount(), 21u);
    EXPECT_EQ(store.Cell(kManyRows - 1, kManyRows - 1), std::to_string(kManyRows));
    EXPECT_EQ(store.Put(kManyRows - 1, 0, 0.5), "");
    ASSERT_TRUE(store.WriteBack());
    EXPECT_EQ(store.files().pageCount(), 22u);
    atFirst = store.Everything();
  }
  CellStore store(kManyRows);
  ASSERT_TRUE(store.Open(Folder()));
  EXPECT_EQ(store.Everything(), atFirst);
  for (const uint32_t row : {0u, 510u, 511u, 8 * 511u, kManyRows - 1}) {
    EXPECT_EQ(store.Cell(row, row), std::to_string(row + 1));
  }
  EXPECT_EQ(store.Cell(kManyRows - 1, 0), "0.5");
}

TEST_F(CellFilesTest, HaveEveryPutOfAProcessThatWasKilled) {
  const std::string before = StoreAndDie(30);
  EXPECT_EQ(Bytes(journal_).size(), 30 * kRecordBytes);
  CellStore store;
  ASSERT_TRUE(store.Open(Folder()));
  EXPECT_EQ(store.Everything(), before);
  EXPECT_EQ(store.files().replayed().carriedOut, 30u);
  EXPECT_EQ(store.files().replayed().passedOver, 0u);
  EXPECT_EQ(store.files().replayed().droppedBytes, 0u);
  EXPECT_EQ(store.Cell(29, 30), "129");
}

TEST_F(CellFilesTest, GoOnBehindWhatWasReplayed) {
  StoreAndDie(3);
  std::string before;
  {
    CellStore store;
    ASSERT_TRUE(store.Open(Folder()));
    EXPECT_EQ(store.Put(0, 1, -7), "");
    before = store.Everything();
  }
  EXPECT_EQ(Bytes(journal_).size(), 4 * kRecordBytes);
  EXPECT_EQ(Reopen(), before);
}

TEST_F(CellFilesTest, StartAnewAfterACleanEnd) {
  std::string before;
  {
    CellStore store;
    ASSERT_TRUE(store.Open(Folder()));
    EXPECT_EQ(store.Put(3, 4, 5.25), "");
    ASSERT_TRUE(store.WriteBack());
    before = store.Everything();
  }
  EXPECT_EQ(Bytes(journal_).size(), 0u);
  CellStore store;
  ASSERT_TRUE(store.Open(Folder()));
  EXPECT_EQ(store.Everything(), before);
  EXPECT_EQ(store.files().replayed().carriedOut, 0u);
  EXPECT_EQ(store.Cell(3, 4), "5.25");
}

TEST_F(CellFilesTest, AreNotWrittenWithoutAPut) {
  StoreAndDie(0);
  const std::string before = Bytes(pages_);
  CellStore store;
  ASSERT_TRUE(store.Open(Folder()));
  const ScriptedImport noWrites("WriteFile", {.result = 0, .error = 112});
  EXPECT_TRUE(store.WriteBack());
  EXPECT_EQ(Bytes(pages_), before);
}

// The process was killed when the cells were in their place and the journal was not yet emptied.
TEST_F(CellFilesTest, AJournalThatTheCellsHaveInThemIsPassedOver) {
  StoreAndDie(5);
  const std::string journal = Bytes(journal_);
  std::string before;
  {
    CellStore store;
    ASSERT_TRUE(store.Open(Folder()));
    EXPECT_EQ(store.Put(0, 1, 1000), "") << "or carrying PUT 1 out again would not show";
    ASSERT_TRUE(store.WriteBack());
    before = store.Everything();
  }
  Write(journal_, journal);
  {
    CellStore store;
    ASSERT_TRUE(store.Open(Folder()));
    EXPECT_EQ(store.Everything(), before);
    EXPECT_EQ(store.files().replayed().passedOver, 5u);
    EXPECT_EQ(store.files().replayed().carriedOut, 0u);
    EXPECT_EQ(store.Put(7, 7, 8.5), "");
    before = store.Everything();
  }
  EXPECT_EQ(Bytes(journal_).size(), kRecordBytes);
  EXPECT_EQ(Reopen(), before);
}

// ... or before the new cells were in their place.
TEST_F(CellFilesTest, CellsThatNeverTookTheirPlaceDoNoHarm) {
  const std::string before = StoreAndDie(2);
  Write(Path("cells.new"), std::string(3 * kPageBytes, 'x'));
  EXPECT_EQ(Reopen(), before);
  CellStore store;
  ASSERT_TRUE(store.Open(Folder()));
  EXPECT_TRUE(store.WriteBack());
  EXPECT_EQ(Bytes(pages_).size(), 2 * kPageBytes);
}

// ---- Torn and damaged ----

TEST_F(CellFilesTest, ALastRecordTornAtAnyByteIsDropped) {
  const std::string four = StoreAndDie(4);
  const std::string whole = Bytes(journal_);
  Write(journal_, whole.substr(0, 3 * kRecordBytes));
  const std::string three = Reopen();
  ASSERT_NE(three, four);
  for (uint32_t left = 1; left < kRecordBytes; ++left) {
    Write(journal_, whole.substr(0, 3 * kRecordBytes + left));
    CellStore store;
    ASSERT_TRUE(store.Open(Folder())) << left;
    ASSERT_EQ(store.Everything(), three) << left;
    ASSERT_EQ(store.files().replayed().droppedBytes, left);
    ASSERT_EQ(Bytes(journal_).size(), 3 * kRecordBytes);
  }
  Write(journal_, whole);
  EXPECT_EQ(Reopen(), four);
}

TEST_F(CellFilesTest, ALastRecordDamagedInAnyByteIsDroppedAndItsPlaceUsedAgain) {
  const std::string four = StoreAndDie(4);
  const std::string whole = Bytes(journal_);
  for (uint32_t at = 0; at < kRecordBytes; ++at) {
    std::string damaged = whole;
    damaged[3 * kRecordBytes + at] ^= 0x40;
    Write(journal_, damaged);
    CellStore store;
    ASSERT_TRUE(store.Open(Folder())) << at;
    ASSERT_EQ(store.Cell(3, 4), "no data") << at;
    ASSERT_EQ(store.files().replayed().droppedBytes, kRecordBytes);
    ASSERT_EQ(store.Put(3, 4, 103), "");
    ASSERT_EQ(store.Everything(), four);
  }
  EXPECT_EQ(Bytes(journal_), whole) << "a PUT that was dropped left no gap in the numbers";
}

TEST_F(CellFilesTest, ADamagedRecordThatOthersFollowIsRefused) {
  StoreAndDie(4);
  const std::string whole = Bytes(journal_);
  for (const uint32_t record : {0u, 2u}) {
    std::string damaged = whole;
    damaged[record * kRecordBytes + 20] ^= 1;
    Write(journal_, damaged);
    EXPECT_TRUE(Contains(Reopen(), Numbered("record ", record) + " of"));
    EXPECT_EQ(Bytes(journal_), damaged) << "nothing is mended in what is not understood";
  }
}

TEST_F(CellFilesTest, AJournalWithAGapIsRefused) {
  StoreAndDie(4);
  const std::string whole = Bytes(journal_);
  Write(journal_, whole.substr(kRecordBytes));
  EXPECT_TRUE(Contains(Reopen(), "record 0 of"));
  Write(journal_, whole.substr(0, kRecordBytes) + whole.substr(2 * kRecordBytes));
  EXPECT_TRUE(Contains(Reopen(), "does not follow the one before it"));
}

TEST_F(CellFilesTest, ADamagedBlockIsToldWithItsNumberAndRefused) {
  {
    CellStore store(kManyRows);
    ASSERT_TRUE(store.Open(Folder()));
  }
  const std::string whole = Bytes(pages_);
  for (const uint32_t block : {0u, 1u, 9u, 20u}) {
    std::string damaged = whole;
    damaged[block * kPageBytes + 5000] ^= 0x10;
    Write(pages_, damaged);
    EXPECT_TRUE(Contains(Reopen(Folder(), kManyRows), Numbered("block ", block) + " of"));
  }
  std::string exchanged = whole;
  exchanged.replace(3 * kPageBytes, kPageBytes, whole, 4 * kPageBytes, kPageBytes);
  Write(pages_, exchanged);
  EXPECT_TRUE(Contains(Reopen(Folder(), kManyRows), "block 3 of"));
}

TEST_F(CellFilesTest, BlocksThatAreMissingAreNoticed) {
  {
    CellStore store(kManyRows);
    ASSERT_TRUE(store.Open(Folder()));
  }
  const std::string whole = Bytes(pages_);
  for (const size_t bytes : {size_t{0}, size_t{100}, size_t{kPageBytes}, whole.size() - 1}) {
    Write(pages_, whole.substr(0, bytes));
    EXPECT_TRUE(Contains(Reopen(Folder(), kManyRows), "does not hold the cells")) << bytes;
  }
}

TEST_F(CellFilesTest, OtherFactsAreRefused) {
  StoreAndDie(1);
  EXPECT_TRUE(Contains(Reopen(Folder(), 41), "the cells of other facts"));
}

// ---- Files that are missing ----

// The facts' cells must not take the place of those that PUTs have changed.
TEST_F(CellFilesTest, CellsThatAreMissingAreNoFirstStart) {
  StoreAndDie(0);
  ASSERT_EQ(std::remove(pages_.c_str()), 0);
  EXPECT_TRUE(Contains(Reopen(), "has no cells.pag any more")) << "an empty journal and a mark";
  const std::string mark = Bytes(mark_);
  ASSERT_EQ(std::remove(mark_.c_str()), 0);
  EXPECT_TRUE(Contains(Reopen(), "has no cells.pag any more")) << "an empty journal";
  ASSERT_EQ(std::remove(journal_.c_str()), 0);
  Write(mark_, mark);
  EXPECT_TRUE(Contains(Reopen(), "has no cells.pag any more")) << "a mark";
  EXPECT_FALSE(std::filesystem::exists(pages_) || std::filesystem::exists(journal_));
}

TEST_F(CellFilesTest, AJournalThatIsMissingIsRefused) {
  StoreAndDie(2);
  ASSERT_EQ(std::remove(journal_.c_str()), 0);
  EXPECT_TRUE(Contains(Reopen(), "has no cells.jnl any more"));
  EXPECT_FALSE(std::filesystem::exists(journal_));
}

// What a first start leaves that is killed, from its first step to its last but one, and a folder
// of before there were marks.
TEST_F(CellFilesTest, AFirstStartThatWasKilledIsMadeAgain) {
  const std::string atFirst = StoreAndDie(0);
  const std::string pages = Bytes(pages_);
  const std::string mark = Bytes(mark_);
  const struct {
    const char* left;
    bool hasPages, hasJournal;
    std::string mark;
  } cases[] = {{"the mark is empty", false, false, ""},
               {"the cells are there", true, false, ""},
               {"the journal is there", true, true, ""},
               {"the mark is torn", true, true, mark.substr(0, 20)}};
  for (const auto& now : cases) {
    SCOPED_TRACE(now.left);
    std::filesystem::remove_all(Folder());
    folder_.Make("data");
    Write(Path("cells.new"), "half");
    if (now.hasPages) Write(pages_, pages);
    if (now.hasJournal) Write(journal_, "");
    Write(mark_, now.mark);
    EXPECT_EQ(Reopen(), atFirst);
    EXPECT_EQ(Bytes(mark_), mark);
    EXPECT_EQ(Bytes(journal_), "");
  }
}

TEST_F(CellFilesTest, AMarkThatCannotBeWrittenEndsTheStart) {
  const std::string told = ToldBy([&] {
    CellStore store;
    // Behind the two blocks.
    const ScriptedImport full("WriteFile", {.result = 0, .error = 112, .passFirst = 2});
    EXPECT_FALSE(store.Open(Folder()));
  });
  EXPECT_TRUE(Contains(told, "cells.mrk'")) << told;
  EXPECT_TRUE(Contains(Reopen(), "; ")) << "the next start is as good as the first";
}

TEST_F(CellFilesTest, AreForOneServerAtATime) {
  CellStore store;
  ASSERT_TRUE(store.Open(Folder()));
  EXPECT_TRUE(Contains(Reopen(), "another server uses"));
  EXPECT_EQ(store.Put(1, 1, 3), "");
}

// ---- PUTs that are refused ----

TEST_F(CellFilesTest, WhatIsNoCellIsNotWritten) {
  CellStore store;
  ASSERT_TRUE(store.Open(Folder()));
  EXPECT_EQ(store.Put("PUT r1 5"),
            "nothing stored: a cell has 2 members, one of each dimension, "
            "not 1");
  EXPECT_EQ(store.Put("PUT r1 nowhere 5"), "nothing stored: 'column' has no member 'nowhere'");
  EXPECT_EQ(Bytes(journal_).size(), 0u);
}

// Each way in which a record may not get onto the device.
struct FailingCall {
  const char* function;
  kiv::test::Script script;
};

class FailingWriteTest : public CellFilesTest, public testing::WithParamInterface<FailingCall> {};

TEST_P(FailingWriteTest, LeavesTheCellAndTheJournalAsTheyWere) {
  CellStore store;
  ASSERT_TRUE(store.Open(Folder()));
  ASSERT_EQ(store.Put(1, 1, 50), "");
  const std::string before = store.Everything();
  const std::string journal = Bytes(journal_);
  std::string refused;
  std::string refusedNew;
  EXPECT_NE(ToldBy([&] {
              const ScriptedImport failing(GetParam().function, GetParam().script);
              refused = store.Put(1, 1, 51);
              refusedNew = store.Put(1, 2, 51);
            }),
            "");
  EXPECT_EQ(refused, kNotStored);
  EXPECT_EQ(refusedNew, kNotStored);
  EXPECT_EQ(store.Everything(), before);
  EXPECT_EQ(store.Put(1, 3, 52), "");
  EXPECT_EQ(Bytes(journal_).substr(0, journal.size()), journal);
  EXPECT_EQ(Bytes(journal_).size(), journal.size() + kRecordBytes);
  EXPECT_EQ(store.Cell(1, 1), "50");
  const std::string after = store.Everything();
  EXPECT_TRUE(store.WriteBack());
  EXPECT_EQ(store.Everything(), after);
}

INSTANTIATE_TEST_SUITE_P(
    Journal, FailingWriteTest,
    testing::Values(FailingCall{"WriteFile", {.result = 0, .error = 112}},
                    FailingCall{"WriteFile", {.result = 0, .error = 5}},
                    FailingCall{"WriteFile", {.result = 1, .error = 0}},  // and no byte written
                    FailingCall{"_commit", {.result = UINTPTR_MAX, .error = 5}},
                    FailingCall{"_commit", {.result = UINTPTR_MAX, .error = 28, .failCount = 3}}));

TEST_F(CellFilesTest, APutWithoutALeaseIsNotStored) {
  CellStore store;
  ASSERT_TRUE(store.Open(Folder()));
  bool made = false;
  store.Backup(600, &made);
  ASSERT_TRUE(made);
  const std::string told = ToldBy([&] {
    const ScriptedImport failing("WaitForSingleObject", {.result = UINT32_MAX, .error = 6});
    EXPECT_EQ(store.Put(1, 1, 51), kNotStored);
  });
  EXPECT_TRUE(Contains(told, "could not take a lease to write"));
  EXPECT_EQ(store.Cell(1, 1), "2");
  EXPECT_EQ(Bytes(journal_), "");
}

// What a killed process leaves of a PUT that was refused.
TEST_F(CellFilesTest, APutWhoseFlushFailedIsNotReplayed) {
  StoreAndDie(2);
  std::string before;
  {
    CellStore store;
    ASSERT_TRUE(store.Open(Folder()));
    before = store.Everything();
    const std::string told = ToldBy([&] {
      const ScriptedImport failing("_commit", {.result = UINTPTR_MAX, .error = 5, .failCount = 1});
      EXPECT_EQ(store.Put(1, 1, 51), kNotStored);
    });
    EXPECT_TRUE(Contains(told, "could not flush"));
  }
  EXPECT_EQ(Reopen(), before);
}

TEST_F(CellFilesTest, ARecordThatCannotBeCutOffIsToldAndTheNextPutTakesItsPlace) {
  CellStore store;
  ASSERT_TRUE(store.Open(Folder()));
  const std::string told = ToldBy([&] {
    const ScriptedImport noFlush("_commit", {.result = UINTPTR_MAX, .error = 5});
    const ScriptedImport noCut("_chsize", {.result = UINTPTR_MAX, .error = 5});
    EXPECT_EQ(store.Put(1, 1, 51), kNotStored);
  });
  EXPECT_TRUE(Contains(told, "PUT 1 was refused, and may be carried out if the server is killed"));
  EXPECT_EQ(store.Cell(1, 1), "2");
  EXPECT_EQ(store.Put(1, 2, 52), "");
  EXPECT_EQ(Bytes(journal_).size(), kRecordBytes);
}

TEST_F(CellFilesTest, WhatIsTakenBackIsNotInTheJournal) {
  Fault fault = {};
  Replayed replayed = {};
  const auto none = [](const StoredCell&) { return false; };
  folder_.Make("data");
  {
    Journal journal;
    ASSERT_TRUE(journal.Open(journal_) && journal.Replay(6, 6, &replayed, none));
    ASSERT_TRUE(journal.Append({.place = 3, .value = 1}, &fault));
    ASSERT_TRUE(journal.Append({.place = 4, .value = 2}, &fault));
    EXPECT_EQ(journal.lastPut(), 8u);
    journal.TakeBack();
    EXPECT_EQ(journal.lastPut(), 7u);
    ASSERT_TRUE(journal.Append({.place = 5, .value = 3}, &fault));
    EXPECT_EQ(journal.lastPut(), 8u);
    journal.TakeBack();
  }
  Journal journal;
  std::vector<uint64_t> places;
  ASSERT_TRUE(journal.Open(journal_));
  ASSERT_TRUE(journal.Replay(6, 6, &replayed, [&](const StoredCell& cell) {
    places.push_back(cell.place);
    return true;
  }));
  EXPECT_EQ(places, std::vector<uint64_t>{3});
}

// The library's calls of the C runtime's heap fail. A cell that is there needs no memory.
TEST_F(CellFilesTest, APutThatMemoryIsMissingForIsNotWritten) {
  CellStore store;
  ASSERT_TRUE(store.Open(Folder()));
  ASSERT_EQ(store.Put(1, 1, 50), "");
  // Until there is no room left for one more cell.
  std::string refused;
  uint32_t puts = 1;
  ToldBy([&] {
    for (; refused.empty() && puts < 100; ++puts) {
      TextStack words;
      PutOrder order;
      Fault fault = {};
      const std::string text = Numbered("PUT r2 c", puts % test::kRows) + Numbered(" ", puts);
      ASSERT_TRUE(ParsePut(text, &words, &order, &fault));
      const ScriptedImport noMemory("realloc", {.result = 0, .error = 12});
      const ScriptedImport writes("WriteFile", {.passFirst = UINT32_MAX});
      if (!store.files().Put(store.cache(), order, &fault)) refused = fault.text;
      EXPECT_EQ(writes.calls().size(), refused.empty() ? 1u : 0u) << "nothing to take back";
    }
  });
  EXPECT_EQ(refused, "nothing stored: no memory for the cell");
  EXPECT_EQ(Bytes(journal_).size(), (puts - 1) * kRecordBytes);
}

TEST_F(CellFilesTest, CellsThatCannotBeWrittenBackStayInTheJournal) {
  for (const uint32_t written : {0u, 1u, 5u}) {
    {
      CellStore store(kManyRows);
      ASSERT_TRUE(store.Open(Folder()));
      ASSERT_EQ(store.Put(written, 9, 4.5), "");
      const std::string pages = Bytes(pages_);
      EXPECT_NE(ToldBy([&] {
                  const ScriptedImport full("WriteFile",
                                            {.result = 0, .error = 112, .passFirst = written});
                  EXPECT_FALSE(store.WriteBack());
                }),
                "");
      EXPECT_EQ(Bytes(pages_), pages);
    }
    CellStore store(kManyRows);
    ASSERT_TRUE(store.Open(Folder()));
    EXPECT_EQ(store.Cell(written, 9), "4.5");
    EXPECT_GE(store.files().replayed().carriedOut, 1u);
  }
}

// One call for each MiB: with one for each record, a million of them took half a minute and more.
TEST_F(CellFilesTest, ALongJournalIsReadInPiecesOfAMebibyte) {
  constexpr uint32_t kPuts = 100'000;
  constexpr uint32_t kPieceBytes = 1024 * 1024;
  constexpr size_t kPieces = (size_t{kPuts} * kRecordBytes + kPieceBytes - 1) / kPieceBytes;
  constexpr uint32_t kLengthArgument = 2;
  StoreAndDie(0);
  std::string journal;
  for (uint32_t put = 1; put <= kPuts; ++put) {
    const JournalRecord record = MakeRecord(put, {.place = put % test::kRows, .value = 1.0 * put});
    journal.append(reinterpret_cast<const char*>(&record), sizeof record);
  }
  Write(journal_, journal);
  CellStore store;
  const ScriptedImport reads("ReadFile", {.passFirst = UINT32_MAX});
  ASSERT_TRUE(store.Open(Folder()));
  EXPECT_EQ(store.files().replayed().carriedOut, kPuts);
  size_t pieces = 0;
  for (const ScriptedImport::Arguments& read : reads.calls()) {
    if (static_cast<uint32_t>(read[kLengthArgument]) != kPageBytes) ++pieces;
  }
  EXPECT_EQ(pieces, kPieces);
  EXPECT_EQ(store.Cell(0, 0), std::to_string(kPuts)) << "place 0; the last of its PUTs";
}

TEST_F(CellFilesTest, AReadThatFailsIsTold) {
  StoreAndDie(3);
  for (const uint32_t readsBefore : {0u, 1u}) {
    const ScriptedImport failing("ReadFile",
                                 {.result = 0, .error = 1117, .passFirst = readsBefore});
    EXPECT_TRUE(Contains(Reopen(), "OS error 1117")) << readsBefore;
  }
}

}  // namespace
}  // namespace cellhost
