// The files of a server's cells, in a folder of their own:
//
//   cells.pag   all cells as of some PUT, in blocks (cell_page.h). Never changed: it is made anew
//               as cells.new, and takes the other's place when it is whole and on the device
//   cells.jnl   a record of each PUT since (journal_record.h)
//   cells.mrk   keeps other servers out, and says that the two must be there (folder_mark.h)
//   backup-1    copies of the first two with a mark of their own, and so on (backup.h)
//
// Dimensions and members are those of the facts; a folder is for one set of them.
//
//   start   cells.pag into the cube; or, in a folder that never had cells, the facts' cells into
//           cells.pag. Then the journal's PUTs into the cube. A first start makes cells.pag, the
//           journal and the mark in this order, so that one that is killed can be made again
//   PUT     room for the cell, a lease, a record in the journal, the cell
//   end     under a lease, the cells into cells.pag, and then the journal is emptied. A process
//           that is killed between the two finds records at its next start that the cells have in
//           them, and passes them over
//
// Lock order: the lock of PUTs, and then, never both, that of the write pause and that of the
// cells. So queries go on while a PUT waits for the end of a pause. A lease is no lock: a PUT keeps
// it until the cell has changed, and whoever begins a pause waits for it with no other lock.
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

  // ---- Start and end: one thread, with a record; false on failure, which has then been told ----

  // Takes a folder, which is made if it is not there, and keeps other servers from it.
  bool Open(const std::string& folder);

  // Whether the cells are in the folder, so that of the facts only the names are needed.
  bool HasCells() const { return hasCells_; }

  // Gives the cube its cells, or the folder those of the cube if it has none; then carries out the
  // journal's PUTs.
  bool Load(Cube* cube);

  // Waits until no pause is in force.
  bool AwaitPauseEnd();

  // Writes the cells into the folder, if there was a PUT. Waits for a pause and a backup that are
  // under way; from then on there are no backups. No thread changes the cells meanwhile.
  bool WriteBack(const Cube& cube);

  const Replayed& replayed() const { return replayed_; }
  uint32_t pageCount() const { return pageCount_; }

  // ---- Between the two: any thread with a record ----

  // See CellCache::Put. During a pause it waits.
  bool Put(CellCache* cells, const PutOrder& order, Fault* fault);

  // See Backup::Make.
  bool MakeBackup(uint32_t maxSeconds, BackupReport* report) {
    return backup_.Make(maxSeconds, report);
  }

  // The number of the last PUT; between PUTs.
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
  KivSdCritSec putting_ = {};  // PUTs, one after the other, from the journal to the cells
  CellIndex numbers_;
  uint64_t cube_ = 0;  // fingerprint
  uint64_t puts_ = 0;  // number of the last PUT that cells.pag has in it
  uint32_t pageCount_ = 0;
  Replayed replayed_ = {};
  WritePause pause_;
  Journal journal_;
  Backup backup_{&folder_, &pages_, &journal_, &pause_};
};

}  // namespace cellhost

#endif
