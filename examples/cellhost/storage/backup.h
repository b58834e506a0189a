// Backups of the data folder while the server runs. A backup pauses writes and copies both files
// into a new folder beside them. If the pause is still in force after the copy, the copy shows one
// moment: a server started on it has the cells of that moment.
//
// The new folder is called `backup.new` until all of it is on the device, and is then renamed to
// `backup-N`. If the server is killed meanwhile, the next backup removes `backup.new`. The copy's
// mark is written first and its cells are removed first (folder_mark.h): no server accepts an
// incomplete copy, whatever a power cut leaves of it.
//
// Every pause has a maximum duration. A backup either lifts its pause after the copy, or leaves it
// to expire, which gives other programs time to copy the folder. A pause ends when a waiting PUT
// finds that the maximum has passed (up to two seconds late) and lifts it. If a PUT does this while
// the copy is still being made, the backup fails. Queries go on during a pause, unless the waiting
// PUTs of four clients occupy all workers.
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

// The longest pause. Clients would not wait longer for the reply to a PUT.
constexpr uint32_t kBackupSecondsMax = 20;

std::string InFolder(const std::string& folder, const char* name);

// The result of a backup, or the reason why there is none:
//
//   backup-1: 19 blocks of cells.pag, 37 records of cells.jnl; writes were paused for 12 ms
//   backup-2: ...; writes stay paused until a PUT finds that 2 s are over
struct BackupReport {
  char text[224];
};

class Backup {
 public:
  // Keeps references to the arguments.
  Backup(const std::string* folder, const std::string* pages, const Journal* journal,
         WritePause* pause)
      : folder_(*folder), pages_(*pages), journal_(*journal), pause_(*pause) {}
  Backup(const Backup&) = delete;
  Backup& operator=(const Backup&) = delete;

  // Makes a backup. Fails if another backup is under way. Any thread with a record.
  //
  //   maxSeconds  0: lift the pause after the copy; its maximum is kBackupSecondsMax.
  //               Otherwise the maximum of the pause, which is left to expire
  //   report      receives the result
  //
  // Returns whether there is a backup. If not, writes go on unless another backup has paused them.
  bool Make(uint32_t maxSeconds, BackupReport* report);

  // Waits for a backup that is under way, and prevents further backups.
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
