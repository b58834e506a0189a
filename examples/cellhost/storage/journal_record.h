// The byte layout of the journal's records, and the meaning of their order; performs no file I/O.
//
//   0          8       16      24         32
//   | PUT's no | place | value | checksum |
//
// PUTs are numbered from 1, without gaps, and on through all journals of a folder. The head of
// `cells.pag` has the number of the last PUT that its cells include. No PUT is therefore applied
// twice, even if a journal was not emptied.
#ifndef CELLHOST_STORAGE_JOURNAL_RECORD_H
#define CELLHOST_STORAGE_JOURNAL_RECORD_H

#include <stddef.h>
#include <stdint.h>

#include "storage/cell_page.h"

namespace cellhost {

struct JournalRecord {
  uint64_t number;  // number of the PUT
  StoredCell cell;
  uint64_t checksum;  // of the fields before it
};
static_assert(offsetof(JournalRecord, cell) == 8, "layout of the file");
static_assert(offsetof(JournalRecord, checksum) == 24, "layout of the file");
static_assert(sizeof(JournalRecord) == 32, "layout of the file");

constexpr uint32_t kRecordBytes = sizeof(JournalRecord);

JournalRecord MakeRecord(uint64_t number, const StoredCell& cell);
bool IsSound(const JournalRecord& record);

// Decides what to do with each record of a journal, in their order.
class JournalScan {
 public:
  // included: number of the last PUT that the cells include.
  explicit JournalScan(uint64_t included) : included_(included) {}

  enum class Step {
    kCarryOut,
    kPassOver,  // the cells include it already
    kDamaged,
    kGap,  // undamaged, but not the next PUT
  };
  Step Next(const JournalRecord& record);

  // Number of the last PUT that the cells include after the records so far.
  uint64_t lastPut() const { return hasNews() ? last_ : included_; }

  // Whether there was a PUT that the cells did not include.
  bool hasNews() const { return last_ > included_; }

 private:
  uint64_t included_;
  uint64_t last_ = 0;  // number of the last record; 0 before the first
};

}  // namespace cellhost

#endif
