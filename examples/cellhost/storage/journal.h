// The journal: a file of records (journal_record.h), one for each PUT since `cells.pag` was
// written. A record is appended and flushed before the cell is changed and the client receives its
// reply. This decides what a crash preserves, be it a killed process, a stopped system or a power
// cut:
//
//   reply      after the crash
//   stored     the PUT is there
//   ERROR      the PUT is not there; unless its record could not be removed, which the server
//              reports, and the crash comes before the next PUT
//   none yet   the PUT is there as a whole, or not at all
//
// Only the last record can be torn: one PUT is under way at a time, and after a failed PUT the next
// record overwrites the failed one.
//
// One thread at a time, with a record. After the start, a thread that changes the file holds a
// lease of the write pause; during a pause the file and its length therefore do not change.
#ifndef CELLHOST_STORAGE_JOURNAL_H
#define CELLHOST_STORAGE_JOURNAL_H

#include <stdint.h>

#include <functional>
#include <string>

#include "host/host_memory.h"
#include "host/words.h"
#include "kivsdu/file.h"
#include "storage/journal_record.h"

namespace cellhost {

// The result of a replay.
struct Replayed {
  uint64_t carriedOut;
  uint64_t passedOver;    // PUTs that the cells already included
  uint32_t droppedBytes;  // size of a torn or damaged last record
};

class Journal {
 public:
  Journal() = default;
  Journal(const Journal&) = delete;
  Journal& operator=(const Journal&) = delete;
  ~Journal();

  // Opens or makes the file. Returns false on failure, after reporting it.
  bool Open(const std::string& path);

  // Applies the PUTs that the cells do not include, cuts off a torn last record, and prepares the
  // journal for the next PUT.
  //
  //   included  number of the last PUT that the cells include
  //   reach     number of a PUT that the cells or the journal must include
  //   carryOut  applies the cell of a PUT; returning false ends the replay
  //
  // Returns false, after reporting the reason, if the file cannot be read or cut, if a record other
  // than the last is damaged, if a number is missing, or if the journal ends before `reach`. In the
  // last three cases the journal is unchanged.
  using CarryOut = std::function<bool(const StoredCell&)>;
  bool Replay(uint64_t included, uint64_t reach, Replayed* replayed, const CarryOut& carryOut);

  // Appends a PUT. Returns whether the record is on the device. If not, sets `fault` and cuts the
  // record off again. If cutting fails, too, reports it: the next start may then apply the PUT,
  // unless another PUT overwrites the record before.
  bool Append(const StoredCell& cell, Fault* fault);

  // Removes the last appended PUT, in the way in which Append removes a failed one.
  void TakeBack();

  // Empties the file. Call it when the cells on the device include all PUTs.
  bool StartAnew();

  uint64_t lastPut() const { return lastPut_; }  // number of the last PUT
  uint32_t file() const { return file_; }
  // End of the last valid record. A refused PUT may have left bytes behind it.
  uint32_t endBytes() const { return endBytes_; }

 private:
  using Piece = HostArray<JournalRecord>;  // consecutive records of the file
  bool ReadPiece(uint32_t offset, Piece* piece) const;
  bool Count(JournalScan::Step step, uint32_t offset, Replayed* replayed) const;
  bool MakeReady(const JournalScan& scan, uint64_t reach, Replayed* replayed);
  bool CutTo(uint32_t lengthBytes);
  void CutBack();
  bool WriteRecord(const JournalRecord& record);
  bool Fails(uint32_t status, const char* what) const;

  std::string path_;
  uint32_t file_ = KIV_FILE_NONE;
  uint32_t endBytes_ = 0;  // end of the last valid record
  uint64_t lastPut_ = 0;
};

// Stores that a PUT is refused because the journal cannot be written. Always returns false.
bool NotWritten(Fault* fault);

}  // namespace cellhost

#endif
