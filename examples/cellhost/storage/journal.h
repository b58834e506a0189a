// The journal: a file of records (journal_record.h), one for each PUT since `cells.pag` was
// written. A record is appended and flushed, and only then the PUT is carried out and its client
// told. So what a client was told is there after the process was killed, after the system has
// stopped, and after a power cut.
//
// Only the last record can be torn: one PUT is under way at a time, and the next is written where a
// failed one was to be.
//
// One thread at a time, with a record. Once the server has started, whoever changes the file holds
// a lease of the write pause meanwhile; so during a pause the file and its length stay as they are.
#ifndef CELLHOST_STORAGE_JOURNAL_H
#define CELLHOST_STORAGE_JOURNAL_H

#include <stdint.h>

#include <functional>
#include <string>

#include "cube/words.h"
#include "host/host_memory.h"
#include "kivsdu/file.h"
#include "storage/journal_record.h"

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

  // Opens or makes the file. False on failure, which has then been told.
  bool Open(const std::string& path);

  // Carries out what the cells do not have in them, cuts a torn end off, and makes the journal
  // ready for the next PUT.
  //
  //   included  the number of the last PUT that the cells have in them
  //   reach     the number of a PUT that the cells or the journal must have
  //   carryOut  takes the cell of a PUT; false ends it
  //
  // False on failure, when a record that is not the last is damaged or does not follow, and when
  // the journal ends before it should; it is then as it was, and why has been told.
  using CarryOut = std::function<bool(const StoredCell&)>;
  bool Replay(uint64_t included, uint64_t reach, Replayed* replayed, const CarryOut& carryOut);

  // Appends a PUT. Whether the record is on the device; if not, `fault` says why, and the record is
  // cut off again. Where even that fails, which is told, the PUT may be carried out at the next
  // start, if no other follows before.
  bool Append(const StoredCell& cell, Fault* fault);

  // Takes back what was appended last, likewise.
  void TakeBack();

  // Empties the file, once the cells on the device have all of it in them.
  bool StartAnew();

  uint64_t lastPut() const { return lastPut_; }  // its number
  uint32_t file() const { return file_; }
  // Where the last record that counts ends; behind it a refused PUT may have left something.
  uint32_t endBytes() const { return endBytes_; }

 private:
  using Piece = HostArray<JournalRecord>;  // some records of the file
  bool ReadPiece(uint32_t offset, Piece* piece) const;
  bool Count(JournalScan::Step step, uint32_t offset, Replayed* replayed) const;
  bool MakeReady(const JournalScan& scan, uint64_t reach, Replayed* replayed);
  bool CutTo(uint32_t lengthBytes);
  void CutBack();
  bool WriteRecord(const JournalRecord& record);
  bool Fails(uint32_t status, const char* what) const;

  std::string path_;
  uint32_t file_ = KIV_FILE_NONE;
  uint32_t endBytes_ = 0;  // behind the last record that counts
  uint64_t lastPut_ = 0;
};

// Says that a PUT is refused because the journal cannot be written. Always false, to be returned.
bool NotWritten(Fault* fault);

}  // namespace cellhost

#endif
