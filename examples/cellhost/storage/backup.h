// Backups of a server's files while it serves. Writes are paused, and both files are copied into a
// new folder beside them. If the pause has held until all was copied, the copy is that of one
// moment, and a server that is started on it has the cells of that moment.
//
// The folder is `backup.new` until all of it is on the device, and only then has a number. A server
// that is killed meanwhile leaves it to the next backup, which removes it. The copy's mark comes
// first (folder_mark.h), so that no server takes what is left for the whole.
//
// Every pause has a maximum. A backup lifts its pause itself, or lets it expire: then writes stay
// paused after the copy as well, for other programs that copy the folder, until a PUT that waits
// finds that the time is over and lifts the pause. A PUT may do so in the middle of the copy, too,
// if that takes longer than the maximum; then there is no backup.
#ifndef CELLHOST_STORAGE_BACKUP_H
#define CELLHOST_STORAGE_BACKUP_H

#include <stdint.h>

#include <atomic>
#include <string>

#include "storage/journal.h"
#include "storage/write_pause.h"

namespace cellhost {

constexpr char kPagesFile[] = "cells.pag";
constexpr char kJournalFile[] = "cells.jnl";
constexpr char kMarkFile[] = "cells.mrk";

// The longest pause. Longer, and clients would no longer wait for what their PUTs are answered.
constexpr uint32_t kBackupSecondsMax = 20;

std::string InFolder(const std::string& folder, const char* name);

// What was copied, or why nothing was:
//
//   backup-1: 19 blocks of cells.pag, 37 records of cells.jnl; writes were paused for 12 ms
//   backup-2: ...; writes stay paused until a PUT finds that 2 s are over
struct BackupReport {
  char text[224];
};

class Backup {
 public:
  // None of them is copied.
  Backup(const std::string* folder, const std::string* pages, const Journal* journal,
         WritePause* pause)
      : folder_(*folder), pages_(*pages), journal_(*journal), pause_(*pause) {}
  Backup(const Backup&) = delete;
  Backup& operator=(const Backup&) = delete;

  // Makes a backup; one at a time, others are told so. Any thread with a record.
  //
  //   maxSeconds  0: the pause is lifted when all is copied, and lasts kBackupSecondsMax at most.
  //               Otherwise how long it may last; it is left to expire
  //   report      receives what was copied, or why there is no backup
  //
  // Whether there is one. If not, writes go on unless another backup has paused them.
  bool Make(uint32_t maxSeconds, BackupReport* report);

  // Waits for a backup that is under way, and lets none begin any more.
  void Close();

 private:
  bool MakeAlone(uint32_t maxSeconds, BackupReport* report);
  bool PauseWrites(KivSdWriteLease* lease, uint32_t maxSeconds, BackupReport* report);
  bool CopyFiles(BackupReport* report);
  bool CopyInto(const std::string& copy, uint64_t lastPut, uint32_t journalBytes,
                uint32_t* pages) const;
  bool IsOfOneMoment(BackupReport* report);
  bool FindNumber(uint32_t* number) const;
  std::string FolderOf(uint32_t number) const;

  const std::string& folder_;
  const std::string& pages_;
  const Journal& journal_;
  WritePause& pause_;
  std::atomic<bool> running_{false};
};

}  // namespace cellhost

#endif
