// The layout of the journal's records, and the meaning of their order.
#include <gtest/gtest.h>

#include "storage/journal_record.h"

namespace cellhost {
namespace {

using Step = JournalScan::Step;

JournalRecord Record(uint64_t number) { return MakeRecord(number, {.place = 9, .value = -2.5}); }

TEST(JournalRecord, StoresNumberPlaceAndValue) {
  const JournalRecord record = Record(77);
  EXPECT_TRUE(IsSound(record));
  EXPECT_EQ(record.number, 77u);
  EXPECT_EQ(record.cell.place, 9u);
  EXPECT_EQ(record.cell.value, -2.5);
}

TEST(JournalRecord, IsDamagedIfAnyBitDiffers) {
  JournalRecord record = Record(1);
  for (uint32_t bit = 0; bit < 8 * kRecordBytes; ++bit) {
    const unsigned char change = static_cast<unsigned char>(1u << bit % 8);
    unsigned char* byte = reinterpret_cast<unsigned char*>(&record) + bit / 8;
    *byte = *byte ^ change;
    EXPECT_FALSE(IsSound(record)) << "bit " << bit;
    *byte = *byte ^ change;
  }
  EXPECT_TRUE(IsSound(record));
}

TEST(JournalRecord, IsDamagedIfItWasNeverWritten) {
  const JournalRecord zeros = {};
  EXPECT_FALSE(IsSound(zeros));
}

TEST(JournalScan, AppliesPutsThatFollowTheCells) {
  JournalScan scan(0);
  EXPECT_FALSE(scan.hasNews());
  EXPECT_EQ(scan.lastPut(), 0u);
  EXPECT_EQ(scan.Next(Record(1)), Step::kCarryOut);
  EXPECT_EQ(scan.Next(Record(2)), Step::kCarryOut);
  EXPECT_TRUE(scan.hasNews());
  EXPECT_EQ(scan.lastPut(), 2u);
}

TEST(JournalScan, SkipsPutsThatTheCellsInclude) {
  JournalScan scan(4);
  EXPECT_EQ(scan.Next(Record(3)), Step::kPassOver);
  EXPECT_EQ(scan.Next(Record(4)), Step::kPassOver);
  EXPECT_FALSE(scan.hasNews());
  EXPECT_EQ(scan.lastPut(), 4u);
  EXPECT_EQ(scan.Next(Record(5)), Step::kCarryOut);
  EXPECT_TRUE(scan.hasNews());
}

TEST(JournalScan, FindsNoNewPutInAnOlderJournal) {
  JournalScan scan(9);
  EXPECT_EQ(scan.Next(Record(3)), Step::kPassOver);
  EXPECT_FALSE(scan.hasNews());
  EXPECT_EQ(scan.lastPut(), 9u);
}

TEST(JournalScan, DetectsGaps) {
  EXPECT_EQ(JournalScan(4).Next(Record(6)), Step::kGap);
  EXPECT_EQ(JournalScan(4).Next(Record(0)), Step::kGap);
  JournalScan scan(4);
  EXPECT_EQ(scan.Next(Record(5)), Step::kCarryOut);
  EXPECT_EQ(scan.Next(Record(7)), Step::kGap);
  EXPECT_EQ(scan.Next(Record(5)), Step::kGap) << "carried out already";
  JournalRecord damaged = Record(6);
  damaged.cell.value = 1;
  EXPECT_EQ(scan.Next(damaged), Step::kDamaged);
  EXPECT_EQ(scan.Next(Record(6)), Step::kCarryOut);
  EXPECT_EQ(scan.lastPut(), 6u);
}

}  // namespace
}  // namespace cellhost
