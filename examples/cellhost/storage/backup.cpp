// Making a backup; see backup.h.
#include "storage/backup.h"

#include <stdarg.h>
#include <stdio.h>
#include <string.h>

#include <algorithm>

#include "host/complain.h"
#include "host/host_memory.h"
#include "host/stopwatch.h"
#include "host/thread_record.h"
#include "host/waiting.h"
#include "kivsdu/path.h"
#include "kivsdu/status.h"
#include "storage/folder_mark.h"
#include "storage/page_file.h"
#include "storage/rename_file.h"

namespace cellhost {
namespace {

constexpr char kNewCopy[] = "backup.new";
constexpr char kSourceJournal[] = "cellhost/backup journal";
constexpr uint32_t kFoldersMax = 100000;
constexpr uint32_t kPieceBytes = 64 * 1024;
constexpr uint32_t kUsPerMs = 1000;

constexpr uint32_t kOpenFlags =
    KIV_FILEO_WRITE | KIV_FILEO_CREATE | KIV_FILEO_TRUNCATE | KIV_FILEO_BINARY;
constexpr uint32_t kPermissions = KIV_FILE_MAY_READ | KIV_FILE_MAY_WRITE;

CELLHOST_FORMAT(2, 3) void Say(BackupReport* report, const char* format, ...) {
  va_list values;
  va_start(values, format);
  vsnprintf(report->text, sizeof report->text, format, values);
  va_end(values);
}

bool CopyPages(const char* from, const char* to, uint32_t* pages) {
  PageReader reader;
  PageWriter writer;
  if (!reader.Open(from) || !writer.Make(to, reader.pageCount())) return false;
  for (*pages = 0; *pages < reader.pageCount(); ++*pages) {
    const CellPage* page = reader.Next();
    CellPage* room = page != nullptr ? writer.Room() : nullptr;
    if (room == nullptr) return false;
    memcpy(static_cast<void*>(room), page, sizeof *page);
    if (!writer.Write()) return false;
  }
  return writer.Finish();
}

// Copies the first bytes of the journal into another stream.
bool CopyBytes(uint32_t from, uint32_t lengthBytes, uint32_t to) {
  KivSdContext* ctx = ThisContext();
  HostArray<char> piece(kSourceJournal);
  if (!piece.Resize(kPieceBytes, 0)) return false;
  for (uint32_t offset = 0; offset < lengthBytes;) {
    const uint32_t wanted = std::min(lengthBytes - offset, kPieceBytes);
    uint32_t count = 0;
    uint32_t written = 0;
    if (!Succeeded(ctx, KivSdFilePRead(ctx, from, piece.data(), offset, wanted, &count),
                   "read the journal") ||
        !Succeeded(ctx, KivSdFileWrite(ctx, to, piece.data(), count, &written),
                   "write a copy of the journal")) {
      return false;
    }
    if (count == 0 || written != count) return Complain("could not copy all of the journal");
    offset += count;
  }
  return Succeeded(ctx, KivSdFileFlush(ctx, to), "flush a copy of the journal");
}

bool CopyJournal(uint32_t from, uint32_t lengthBytes, const char* to) {
  KivSdContext* ctx = ThisContext();
  uint32_t copy = KIV_FILE_NONE;
  if (!Succeeded(ctx, KivSdFileOpen(ctx, to, kOpenFlags, kPermissions, &copy),
                 "make a copy of the journal")) {
    return false;
  }
  const bool copied = CopyBytes(from, lengthBytes, copy);
  return Succeeded(ctx, KivSdFileClose(ctx, copy), "close a copy of the journal") && copied;
}

bool MarkCopy(const std::string& path, uint64_t lastPut) {
  FolderMark mark;
  return mark.Open(path) && mark.Set(lastPut);
}

// Removes the cells first: what remains after a crash is then never taken for a copy.
bool RemovePages(const std::string& path) {
  bool exists = false;
  if (!Exists(path, &exists)) return false;
  if (!exists) return true;
  KivSdContext* ctx = ThisContext();
  return Succeeded(ctx, KivSdFileRemove(ctx, path.c_str()), "remove the cells of a backup") &&
         KeepName(path);
}

bool RemoveFolder(const std::string& path) {
  if (!RemovePages(InFolder(path, kPagesFile))) return false;
  KivSdContext* ctx = ThisContext();
  return Succeeded(ctx, KivSdDirRemove(ctx, path.c_str()), "remove a backup that is not whole");
}

// Makes an empty folder, after removing one that a killed server may have left.
bool MakeEmptyFolder(const std::string& path) {
  bool exists = false;
  if (!Exists(path, &exists) || (exists && !RemoveFolder(path))) return false;
  KivSdContext* ctx = ThisContext();
  return Succeeded(ctx, KivSdDirCreate(ctx, path.c_str()), "make a folder for a backup");
}

}  // namespace

std::string InFolder(const std::string& folder, const char* name) { return folder + "/" + name; }

std::string Backup::FolderOf(uint32_t number) const {
  return InFolder(folder_, ("backup-" + std::to_string(number)).c_str());
}

bool Backup::Make(uint32_t maxSeconds, BackupReport* report) {
  // acquire: pairs with the release below in the previous backup.
  if (running_.exchange(true, std::memory_order_acquire)) {
    Say(report, "another backup is under way; try again when it is done");
    return false;
  }
  const bool made = MakeAlone(maxSeconds, report);
  running_.store(false, std::memory_order_release);
  return made;
}

void Backup::Close() {
  for (Pause pause; running_.exchange(true, std::memory_order_acquire);) pause.Take();
}

bool Backup::MakeAlone(uint32_t maxSeconds, BackupReport* report) {
  WriteLease own(&pause_);
  KivSdWriteLease* lease = own.context();
  const bool expires = maxSeconds != 0;
  if (!PauseWrites(lease, expires ? maxSeconds : kBackupSecondsMax, report)) return false;
  const Stopwatch watch;
  Say(report, "the files could not be copied; see what the server said");
  const bool copied = CopyFiles(report);
  const bool lift = !copied || !expires;
  if (lift) KivSdUnpauseWriteIO(lease);
  if (!copied) return false;
  const size_t length = strlen(report->text);
  char* end = report->text + length;
  if (lift) {
    snprintf(end, sizeof report->text - length, "; writes were paused for %u ms",
             watch.elapsedUs() / kUsPerMs);
  } else {
    snprintf(end, sizeof report->text - length,
             "; writes stay paused until a PUT finds that %u s are over", maxSeconds);
  }
  return true;
}

// Pauses writes. If an earlier pause has expired and no PUT has lifted it, lifts that pause first.
bool Backup::PauseWrites(KivSdWriteLease* lease, uint32_t maxSeconds, BackupReport* report) {
  uint32_t status = KivSdPauseWriteIO(lease, maxSeconds);
  if (status == KIV_ST_WRITE_PAUSE && pause_.HasExpired()) {
    KivSdUnpauseWriteIO(lease);
    status = KivSdPauseWriteIO(lease, maxSeconds);
  }
  if (status == 0) return true;
  if (status == KIV_ST_WRITE_PAUSE) {
    Say(report, "writes are paused for the last backup; try again when that is over");
    return false;
  }
  // A pause that failed is in force nevertheless.
  KivSdUnpauseWriteIO(lease);
  Say(report, "writes could not be paused: %s", ReasonOf(ThisContext(), status).text);
  return false;
}

// Finds the first number without a backup.
bool Backup::FindNumber(uint32_t* number) const {
  for (*number = 1; *number < kFoldersMax; ++*number) {
    bool exists = false;
    if (!Exists(FolderOf(*number), &exists)) return false;
    if (!exists) return true;
  }
  return Complain("'%s' has %u backups; remove some", folder_.c_str(), kFoldersMax - 1);
}

// Copies the files and gives the copy its number. Removes an incomplete copy.
bool Backup::CopyFiles(BackupReport* report) {
  const std::string copy = InFolder(folder_, kNewCopy);
  // Read once: the pause keeps them from changing, but a PUT that lifts it could change them.
  const uint32_t journalBytes = journal_.endBytes();
  const uint64_t lastPut = journal_.lastPut();
  uint32_t pages = 0;
  uint32_t number = 0;
  if (!MakeEmptyFolder(copy)) return false;
  if (!CopyInto(copy, lastPut, journalBytes, &pages) || !IsOfOneMoment(report) ||
      !FindNumber(&number) || !GiveName(copy.c_str(), FolderOf(number).c_str())) {
    RemoveFolder(copy);
    return false;
  }
  Say(report, "backup-%u: %u blocks of %s, %u records of %s", number, pages, kPagesFile,
      journalBytes / kRecordBytes, kJournalFile);
  return true;
}

// Writes the mark first: it states which PUT the two files must reach.
bool Backup::CopyInto(const std::string& copy, uint64_t lastPut, uint32_t journalBytes,
                      uint32_t* pages) const {
  const std::string mark = InFolder(copy, kMarkFile);
  const std::string journal = InFolder(copy, kJournalFile);
  return MarkCopy(mark, lastPut) && KeepName(mark) &&
         CopyPages(pages_.c_str(), InFolder(copy, kPagesFile).c_str(), pages) &&
         CopyJournal(journal_.file(), journalBytes, journal.c_str()) && KeepName(journal);
}

// Returns whether the pause has lasted until now. A PUT may have lifted it after its maximum.
bool Backup::IsOfOneMoment(BackupReport* report) {
  if (pause_.IsInForce()) return true;
  Say(report, "the pause was over before all was copied; give it more seconds, up to %u",
      kBackupSecondsMax);
  return false;
}

}  // namespace cellhost
