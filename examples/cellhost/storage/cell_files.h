// The files of a server's cells, in the folder of the option --data:
//
//   cells.pag   all cells as of some PUT, in blocks (cell_page.h). Never modified: the next version
//               is written as cells.new, flushed, and renamed over the old one
//   cells.jnl   a record of each PUT since then (journal_record.h)
//   cells.mrk   keeps other servers out; states that the other two must exist (folder_mark.h)
//   backup-1    a copy of the first two, with its own mark; and so on (backup.h)
//
// Dimensions and members come from the facts at every start. A folder fits the facts from which it
// was made; a fingerprint checks this. Once the folder has cells, the facts' numbers are ignored.
//
//   start   Read cells.pag into the cube. In a folder that never had cells, write the cube's cells
//           into cells.pag instead. Then apply the PUTs of the journal. A first start makes
//           cells.pag, journal and mark in this order, and waits for the names of the first two
//           before it fills in the mark; if it is killed, or the power is cut, it can be repeated
//   PUT     Make room for the cell, take a lease, append to the journal, change the cell, release
//           the lease. One PUT at a time: the journal has the order of the changes
//   end     Under a lease, write cells.pag, then empty the journal. If the process is killed
//           between the two, the next start skips the records that cells.pag includes
//
// Lock order: first the lock of PUTs; then either the write pause's lock or the cells' lock, never
// both. Queries therefore go on while a PUT waits for the end of a pause. A lease is not a lock: a
// PUT keeps it until the cell has changed, and a thread that begins a pause waits for the leases
// while it holds no other lock.
#ifndef CELLHOST_STORAGE_CELL_FILES_H
#define CELLHOST_STORAGE_CELL_FILES_H

#include <stdint.h>

#include <string>

#include "cube/cell_cache.h"
#include "cube/cube.h"
#include "kivsdu/mutex.h"
#include "storage/backup.h"
#include "storage/cell_index.h"
#include "storage/folder_mark.h"
#include "storage/journal.h"
#include "storage/write_pause.h"

namespace cellhost {

class CellFiles {
 public:
  CellFiles() = default;
  CellFiles(const CellFiles&) = delete;
  CellFiles& operator=(const CellFiles&) = delete;
  ~CellFiles();

  // ---- Start and end: one thread, with a record. They return false after reporting a failure ----

  // Opens a folder, or makes it, and keeps other servers out of it.
  bool Open(const std::string& folder);

  // Whether the folder has cells. If so, only the names of the facts are needed.
  bool HasCells() const { return hasCells_; }

  // Loads the folder's cells into the cube, or writes the cube's cells into a folder without cells.
  // Then applies the journal's PUTs.
  bool Load(Cube* cube);

  // Waits until no write pause is in force.
  bool AwaitPauseEnd();

  // Writes the cells into the folder, if there was a PUT. Waits for a pause and a backup under way,
  // and prevents further backups. No thread may change the cells meanwhile.
  bool WriteBack(const Cube& cube);

  const Replayed& replayed() const { return replayed_; }
  uint32_t pageCount() const { return pageCount_; }

  // ---- Between the two: any thread with a record ----

  // See CellCache::Put. Waits during a write pause.
  bool Put(CellCache* cells, const PutOrder& order, Fault* fault);

  // See Backup::Make.
  bool MakeBackup(uint32_t maxSeconds, BackupReport* report) {
    return backup_.Make(maxSeconds, report);
  }

  // The number of the last PUT. Call it only while no PUT is under way.
  uint64_t lastPut() const { return journal_.lastPut(); }

 private:
  bool MakeFolder();
  bool FindCells();
  bool BeginAnew(const Cube& cube);
  bool ReadCells(Cube* cube);
  bool WriteCells(const Cube& cube);
  bool Take(const StoredCell& cell, Cube* cube) const;

  std::string folder_;
  std::string pages_;
  std::string newPages_;
  std::string journalPath_;
  FolderMark mark_;
  bool hasCells_ = false;
  bool hasTurns_ = false;
  KivSdCritSec putting_ = {};  // the lock of PUTs: one PUT at a time, from journal to cell
  CellIndex numbers_;
  uint64_t cube_ = 0;  // fingerprint
  uint64_t puts_ = 0;  // number of the last PUT that cells.pag includes
  uint32_t pageCount_ = 0;
  Replayed replayed_ = {};
  WritePause pause_;
  Journal journal_;
  Backup backup_{&folder_, &pages_, &journal_, &pause_};
};

}  // namespace cellhost

#endif
