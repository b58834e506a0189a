// The records of the journal, as bytes, and what a row of them means. Knows of no file.
//
//   0          8       16      24         32
//   | PUT's no | place | value | checksum |
//
// PUTs are numbered from 1 on, without a gap and over all of a folder's journals: the head of
// `cells.pag` says up to which its cells have them, so that no PUT is carried out twice, and a
// journal that was not yet emptied does no harm.
#ifndef CELLHOST_STORAGE_JOURNAL_RECORD_H
#define CELLHOST_STORAGE_JOURNAL_RECORD_H

#include <stddef.h>
#include <stdint.h>

#include "storage/cell_page.h"

namespace cellhost {

struct JournalRecord {
  uint64_t number;  // of the PUT
  StoredCell cell;
  uint64_t checksum;  // of what is before it
};
static_assert(offsetof(JournalRecord, cell) == 8, "layout of the file");
static_assert(offsetof(JournalRecord, checksum) == 24, "layout of the file");
static_assert(sizeof(JournalRecord) == 32, "layout of the file");

constexpr uint32_t kRecordBytes = sizeof(JournalRecord);

JournalRecord MakeRecord(uint64_t number, const StoredCell& cell);
bool IsSound(const JournalRecord& record);

// Goes through a journal's records in their order.
class JournalScan {
 public:
  // included: the number of the last PUT that the cells have in them.
  explicit JournalScan(uint64_t included) : included_(included) {}

  enum class Step {
    kCarryOut,
    kPassOver,  // the cells have it in them
    kDamaged,
    kGap,  // whole, and not the PUT that has to follow
  };
  Step Next(const JournalRecord& record);

  // The number of the last PUT that the cells then have in them.
  uint64_t lastPut() const { return hasNews() ? last_ : included_; }

  // Whether there was a PUT that the cells did not have in them.
  bool hasNews() const { return last_ > included_; }

 private:
  uint64_t included_;
  uint64_t last_ = 0;  // number of the last record; 0 before the first
};

}  // namespace cellhost

#endif
