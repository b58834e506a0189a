// Lists of files, built from find records: sizes, times, and blocks of the memory manager.
#include <gtest/gtest.h>

#include <cstring>
#include <limits>
#include <string>

#include "kivsdu/kivsdu.h"
#include "support/block_count.h"
#include "support/guard_watch.h"
#include "support/guarded.h"

namespace {

using kiv::test::BlockCount;
using kiv::test::Guarded;
using kiv::test::GuardWatch;
using kiv::test::kSpoilt;

constexpr uint64_t kIntervalsPerSecond = 10'000'000;
constexpr uint64_t k1970 = 116'444'736'000'000'000;

KivSdFileTime TimeOf(uint64_t intervals) {
  return {static_cast<uint32_t>(intervals), static_cast<uint32_t>(intervals >> 32)};
}

// A find record of a file. Only record.name holds the name: the list must not use record.data.name.
class Found {
 public:
  explicit Found(const std::string& name, uint64_t written = k1970) : name_(name) {
    record_.name = name_.c_str();
    record_.data.written = TimeOf(written);
    record_.data.created = TimeOf(1);
    record_.data.accessed = TimeOf(2);
    record_.data.sizeLow = 0x87654321;
    record_.data.sizeHigh = 5;
  }

  operator const KivSdFindRecord*() const { return &record_; }
  KivSdFindRecord* operator->() { return &record_; }

 private:
  std::string name_;
  KivSdFindRecord record_ = {};
};

int64_t Seconds(uint64_t intervals) {
  const Found found("name", intervals);
  int64_t seconds = 4711;
  EXPECT_EQ(KivSdGetFileSizeAndCreateDate(found, nullptr, &seconds), 0u);
  return seconds;
}

TEST(FileTime, IsInSecondsSince1970) {
  EXPECT_EQ(Seconds(k1970), 0);
  EXPECT_EQ(Seconds(k1970 + kIntervalsPerSecond), 1);
  EXPECT_EQ(Seconds(k1970 + kIntervalsPerSecond - 1), 0);
  EXPECT_EQ(Seconds(k1970 - 1), -1);
  EXPECT_EQ(Seconds(k1970 - kIntervalsPerSecond), -1);
  EXPECT_EQ(Seconds(k1970 - kIntervalsPerSecond - 1), -2);
  EXPECT_EQ(Seconds(133'000'000'000'000'000), 1'655'526'400);
}

TEST(FileTime, BeginsIn1601) {
  EXPECT_EQ(Seconds(0), -11'644'473'600);
  EXPECT_EQ(Seconds(kIntervalsPerSecond - 1), -11'644'473'600);
  EXPECT_EQ(Seconds(kIntervalsPerSecond), -11'644'473'599);
  EXPECT_EQ(Seconds(uint64_t{1} << 32), 429 - 11'644'473'600);
  EXPECT_EQ(Seconds(uint64_t{INT64_MAX}), 910'692'730'085);
}

TEST(FileSizeAndTime, AreTheSizesLowHalfAndTheTimeOfTheLastWrite) {
  const Found found("name", k1970 + 7 * kIntervalsPerSecond);
  Guarded<uint32_t> size;
  Guarded<int64_t> time;
  EXPECT_EQ(KivSdGetFileSizeAndCreateDate(found, size, time), 0u);
  EXPECT_EQ(*size, 0x87654321u);
  EXPECT_EQ(*time, 7);
}

TEST(FileSizeAndTime, AreOptionalOutputs) {
  const Found found("name");
  Guarded<uint32_t> size;
  EXPECT_EQ(KivSdGetFileSizeAndCreateDate(found, size, nullptr), 0u);
  EXPECT_EQ(*size, 0x87654321u);
  EXPECT_EQ(KivSdGetFileSizeAndCreateDate(found, nullptr, nullptr), 0u);
}

TEST(FileSizeAndTime, AreNotStoredWithoutARecord) {
  Guarded<uint32_t> size;
  Guarded<int64_t> time;
  EXPECT_EQ(KivSdGetFileSizeAndCreateDate(nullptr, size, time), 1u);
  EXPECT_TRUE(size.IsAll(kSpoilt));
  EXPECT_TRUE(time.IsAll(kSpoilt));
  EXPECT_EQ(KivSdGetFileSizeAndCreateDate(nullptr, nullptr, nullptr), 1u);
}

void ExpectItem(const KivSdFileListItem& item, const std::string& name) {
  EXPECT_STREQ(item.name, name.c_str());
  EXPECT_EQ(item.size, 0x87654321u);
  EXPECT_EQ(item.modified, 0);
}

TEST(FileList, BeginsWithTheCallersItem) {
  const BlockCount blocks;
  Guarded<KivSdFileListItem> head;
  EXPECT_EQ(KivSdAddFileListItem(head, Found("first"), 0), 0u);
  ExpectItem(*head, "first");
  EXPECT_EQ(head->next, nullptr);
  EXPECT_EQ(blocks.allocated(), 0u);
}

TEST(FileList, GrowsAtItsEndAndShrinksToItsHead) {
  constexpr int kItems = 20;
  Guarded<KivSdFileListItem> head;
  ASSERT_EQ(KivSdAddFileListItem(head, Found("0"), 0), 0u);
  const BlockCount blocks;
  KivSdFileListItem* last = head;
  for (int i = 1; i < kItems; ++i) {
    const auto append = static_cast<uint8_t>(i % 2 == 0 ? 1 : 0x80);
    ASSERT_EQ(KivSdAddFileListItem(last, Found(std::to_string(i)), append), 0u);
    last = last->next;
    ASSERT_NE(last, nullptr);
    EXPECT_EQ(last->next, nullptr);
  }
  EXPECT_EQ(blocks.allocated(), uint64_t{kItems - 1});

  const KivSdFileListItem* item = head;
  for (int i = 0; i < kItems; ++i, item = item->next) ExpectItem(*item, std::to_string(i));
  EXPECT_EQ(item, nullptr);

  EXPECT_EQ(KivSdDeleteFileListItems(head), 0u);
  EXPECT_EQ(blocks.freed(), uint64_t{kItems - 1});
  ExpectItem(*head, "0");
  EXPECT_EQ(head->next, nullptr);
  EXPECT_EQ(KivSdDeleteFileListItems(head), 0u);
  EXPECT_EQ(KivSdDeleteFileListItems(nullptr), 0u);
  EXPECT_EQ(blocks.freed(), uint64_t{kItems - 1});
}

TEST(FileList, IsUnchangedIfAnArgumentIsNull) {
  const BlockCount blocks;
  Guarded<KivSdFileListItem> item;
  for (const uint8_t append : {uint8_t{0}, uint8_t{1}}) {
    EXPECT_EQ(KivSdAddFileListItem(item, nullptr, append), 1u);
    EXPECT_EQ(KivSdAddFileListItem(nullptr, Found("name"), append), 1u);
  }
  EXPECT_TRUE(item.IsAll(kSpoilt));
  EXPECT_EQ(blocks.allocated(), 0u);
}

TEST(FileList, StoresTheLongestNameAndCutsLongerOnes) {
  const std::string longest(1031, 'n');
  Guarded<KivSdFileListItem> item;
  ASSERT_EQ(KivSdAddFileListItem(item, Found(longest), 0), 0u);
  EXPECT_EQ(item->name, longest);
  ASSERT_EQ(KivSdAddFileListItem(item, Found(longest + "n"), 0), 0u);
  EXPECT_EQ(item->name, longest);
  EXPECT_EQ(item->modified, 0);
  ASSERT_EQ(KivSdAddFileListItem(item, Found(""), 0), 0u);
  EXPECT_STREQ(item->name, "");
}

TEST(FileList, RunsTheGuard) {
  GuardWatch guard;
  KivSdFileListItem item = {};
  EXPECT_EQ(KivSdAddFileListItem(&item, Found("name"), 0), 0u);
  EXPECT_EQ(KivSdDeleteFileListItems(&item), 0u);
  EXPECT_EQ(KivSdGetFileSizeAndCreateDate(Found("name"), nullptr, nullptr), 0u);
  EXPECT_EQ(guard.TakeRuns(), 4u);  // adding an item calls KivSdGetFileSizeAndCreateDate
}

}  // namespace
