// The journal: a file of records (journal_record.h), one for each PUT since `cells.pag` was
// written. A record is appended by a write under a lease and flushed, and only then the PUT is
// carried out and its client told. So what a client was told is there after the process was killed,
// after the system has stopped, and after a power cut.
//
// Only the last record can be torn: one PUT is under way at a time, and the next is written where a
// failed one was to be.
//
// One thread at a time, with a record.
#ifndef CELLHOST_STORAGE_JOURNAL_H
#define CELLHOST_STORAGE_JOURNAL_H

#include <stdint.h>

#include <string>

#include "cube/words.h"
#include "kivsdu/file.h"
#include "storage/journal_record.h"
#include "storage/write_pause.h"

namespace cellhost {

// What a start found.
struct Replayed {
  uint64_t carriedOut;
  uint64_t passedOver;    // that the cells had in them
  uint32_t droppedBytes;  // of a last record that was torn or damaged
};

class Journal {
 public:
  Journal() = default;
  Journal(const Journal&) = delete;
  Journal& operator=(const Journal&) = delete;
  ~Journal();

  // Opens or makes the file, and keeps others from writing it. False on failure, which has then
  // been told.
  bool Open(const std::string& path);

  bool IsEmpty() const { return endBytes_ == 0; }

  // Carries out what the cells do not have in them, cuts a torn end off, and makes the journal
  // ready for the next PUT.
  //
  //   included  the number of the last PUT that the cells have in them
  //   carryOut  takes the cell of a PUT; false ends it
  //
  // False on failure, and when a record that is not the last is damaged or does not follow, which
  // has then been told.
  template <class CarryOut>
  bool Replay(uint64_t included, Replayed* replayed, CarryOut carryOut) {
    *replayed = {};
    JournalScan scan(included);
    for (uint32_t offset = 0; endBytes_ - offset >= kRecordBytes; offset += kRecordBytes) {
      JournalRecord record;
      if (!ReadRecord(offset, &record)) return false;
      const JournalScan::Step step = scan.Next(record);
      if (step == JournalScan::Step::kCarryOut && !carryOut(record.cell)) return false;
      if (!Count(step, offset, replayed)) return false;
    }
    return MakeReady(scan, replayed);
  }

  // Appends a PUT; during a pause it waits. Whether the record is on the device; if not, `fault`
  // says why, and the record is cut off again. Where even that fails, which is told, the PUT may be
  // carried out at the next start, if no other follows before.
  bool Append(WritePause* pause, const StoredCell& cell, Fault* fault);

  // Takes back what was appended last, likewise.
  void TakeBack(WritePause* pause);

  // Empties the file, once the cells on the device have all of it in them.
  bool StartAnew();

  uint64_t lastPut() const { return lastPut_; }  // its number
  uint32_t file() const { return file_; }
  // As the system tells it. False on failure, which has then been told.
  bool Length(uint32_t* lengthBytes) const;

 private:
  bool ReadRecord(uint32_t offset, JournalRecord* record) const;
  bool Count(JournalScan::Step step, uint32_t offset, Replayed* replayed) const;
  bool MakeReady(const JournalScan& scan, Replayed* replayed);
  bool CutTo(uint32_t lengthBytes);
  void CutBack(WritePause* pause);
  bool WriteRecord(WritePause* pause, const JournalRecord& record);
  bool Fails(uint32_t status, const char* what) const;

  std::string path_;
  uint32_t file_ = KIV_FILE_NONE;
  uint32_t endBytes_ = 0;  // behind the last record that counts
  uint64_t lastPut_ = 0;
};

}  // namespace cellhost

#endif
