// Records of the journal; see journal_record.h.
#include "storage/journal_record.h"

#include "storage/checksum.h"

namespace cellhost {
namespace {

uint64_t ChecksumOfRecord(const JournalRecord& record) {
  return ChecksumOf(&record, offsetof(JournalRecord, checksum));
}

}  // namespace

JournalRecord MakeRecord(uint64_t number, const StoredCell& cell) {
  JournalRecord record = {.number = number, .cell = cell, .checksum = 0};
  record.checksum = ChecksumOfRecord(record);
  return record;
}

bool IsSound(const JournalRecord& record) { return record.checksum == ChecksumOfRecord(record); }

JournalScan::Step JournalScan::Next(const JournalRecord& record) {
  if (!IsSound(record)) return Step::kDamaged;
  const bool first = last_ == 0;
  const bool follows =
      first ? record.number != 0 && record.number <= included_ + 1 : record.number == last_ + 1;
  if (!follows) return Step::kGap;
  last_ = record.number;
  return record.number <= included_ ? Step::kPassOver : Step::kCarryOut;
}

}  // namespace cellhost
