// Fault loops of files, direct I/O, the write pause, mapped files, paths and searches.
#include <algorithm>
#include <cerrno>
#include <cstring>
#include <string>

#include "faults/fault_loop.h"
#include "kivsdu/kivsdu.h"
#include "support/temporary_folder.h"

namespace {

using kiv::test::FaultLoop;
using kiv::test::FaultOutcome;
using kiv::test::FaultRun;
using kiv::test::FaultScenario;
using kiv::test::NameOfScenario;
using kiv::test::Recording;
using kiv::test::TemporaryFolder;

constexpr uint32_t kAny = FaultOutcome::kAny;
constexpr uint32_t kReadAndWrite = KIV_FILEO_READ_WRITE | KIV_FILEO_CREATE | KIV_FILEO_BINARY;
constexpr uint32_t kPermissions = KIV_FILE_MAY_READ | KIV_FILE_MAY_WRITE;

// A folder with a file, which is open.
struct OpenFile {
  OpenFile() {
    folder.Write("file", "one\ntwo\n");
    EXPECT_EQ(KivSdFileOpen(nullptr, path.c_str(), kReadAndWrite, kPermissions, &file), KIV_ST_OK);
  }
  ~OpenFile() { KivSdFileClose(nullptr, file); }

  TemporaryFolder folder;
  std::string path = folder.Path("file");
  uint32_t file = KIV_FILE_NONE;
};

// ---- Opening ----

using Open = uint32_t (*)(KivSdContext*, const char*, uint32_t*);

uint32_t Create(KivSdContext* ctx, const char* path, uint32_t* file) {
  return KivSdFileCreate(ctx, path, kPermissions, file);
}
uint32_t OpenPlain(KivSdContext* ctx, const char* path, uint32_t* file) {
  return KivSdFileOpen(ctx, path, kReadAndWrite, kPermissions, file);
}
uint32_t OpenLarge(KivSdContext* ctx, const char* path, uint32_t* file) {
  return KivSdFileOpen64(ctx, path, kReadAndWrite, kPermissions, file);
}
uint32_t OpenNew(KivSdContext* ctx, const char* path, uint32_t* file) {
  return KivSdFileOpenExclusiveMode(ctx, path, kReadAndWrite, kPermissions, file);
}
uint32_t OpenShared(KivSdContext* ctx, const char* path, uint32_t* file) {
  return KivSdFileSOpen(ctx, path, kReadAndWrite, KIV_FILE_DENY_WRITE, kPermissions, file);
}
uint32_t OpenSharedNew(KivSdContext* ctx, const char* path, uint32_t* file) {
  return KivSdFileSOpenExclusiveMode(ctx, path, kReadAndWrite, KIV_FILE_DENY_ALL, kPermissions,
                                     file);
}

template <Open open>
void OpenIn(FaultRun& run) {
  const TemporaryFolder folder;
  const std::string path = folder.Path("new");
  uint32_t file = KIV_FILE_NONE;
  const uint32_t status =
      run.Call([&](KivSdContext* ctx) { return open(ctx, path.c_str(), &file); });
  if (status == KIV_ST_OK) {
    KivSdFileClose(nullptr, file);
  } else {
    EXPECT_EQ(file, KIV_FILE_NONE);
  }
}

// ---- Operations on an open file ----

using OnFile = uint32_t (*)(KivSdContext*, uint32_t);

template <OnFile operation>
void OnOpenFile(FaultRun& run) {
  const OpenFile open;
  run.Call([&](KivSdContext* ctx) { return operation(ctx, open.file); });
}

char buffer[64];
uint32_t number;
uint64_t number64;

uint32_t Read(KivSdContext* ctx, uint32_t file) {
  return KivSdFileRead(ctx, file, buffer, 4, &number);
}
uint32_t ReadAt(KivSdContext* ctx, uint32_t file) {
  return KivSdFilePRead(ctx, file, buffer, 4, 4, &number);
}
uint32_t Write(KivSdContext* ctx, uint32_t file) {
  return KivSdFileWrite(ctx, file, "abc", 3, &number);
}
uint32_t WriteAt(KivSdContext* ctx, uint32_t file) {
  return KivSdFilePWrite(ctx, file, "abc", 4, 3, &number, nullptr);
}
uint32_t ReadLine(KivSdContext* ctx, uint32_t file) {
  return KivSdFileGets(ctx, file, buffer, sizeof(buffer));
}
uint32_t Seek(KivSdContext* ctx, uint32_t file) {
  return KivSdFileLSeek(ctx, file, 2, KIV_SEEK_START, &number);
}
uint32_t Seek64(KivSdContext* ctx, uint32_t file) {
  return KivSdFileLSeek64(ctx, file, 2, KIV_SEEK_START, &number64);
}
uint32_t Tell(KivSdContext* ctx, uint32_t file) { return KivSdFileTell(ctx, file, &number); }
uint32_t Length(KivSdContext* ctx, uint32_t file) { return KivSdFileLength(ctx, file, &number); }
uint32_t IsAtEnd(KivSdContext* ctx, uint32_t file) {
  uint8_t atEnd = 0;
  return KivSdFileEof(ctx, file, &atEnd);
}
uint32_t SetEnd(KivSdContext* ctx, uint32_t file) {
  return KivSdFileSetEndOfFile(ctx, file, 4, &number, nullptr);
}
uint32_t ChangeSize(KivSdContext* ctx, uint32_t file) {
  return KivSdDirectIOFileChangeSize(ctx, file, 1, &number);
}

// ---- Operations on a path ----

void RemoveFile(FaultRun& run) {
  const OpenFile open;
  run.Call([&](KivSdContext* ctx) { return KivSdFileRemove(ctx, open.path.c_str()); });
}
void AskForAccess(FaultRun& run) {
  const OpenFile open;
  uint8_t accessible = 0;
  run.Call(
      [&](KivSdContext* ctx) { return KivSdFileAccess(ctx, open.path.c_str(), 0, &accessible); });
}
void AskForStatus(FaultRun& run) {
  const TemporaryFolder folder;
  folder.Write("file", "x");
  const std::string path = folder.Path("file");
  run.Call([&](KivSdContext* ctx) { return KivSdFileGetStatus(ctx, path.c_str(), &number); });
}
void MakeTemporaryName(FaultRun& run) {
  char name[KIV_SYSTEM_PATH_MAX] = {};
  run.Call([&](KivSdContext* ctx) { return KivSdFileTempNameGet(ctx, "kf", name); });
}
void CreateFolder(FaultRun& run) {
  const TemporaryFolder folder;
  const std::string path = folder.Path("new");
  run.Call([&](KivSdContext* ctx) { return KivSdDirCreate(ctx, path.c_str()); });
}
void CreateFolderEx(FaultRun& run) {
  const TemporaryFolder folder;
  const std::string path = folder.Path("new");
  run.Call([&](KivSdContext* ctx) { return KivSdDirCreateEx(ctx, path.c_str()); });
}
void CreateFolders(FaultRun& run) {
  const TemporaryFolder folder;
  std::string path = folder.Path("a/b/c");
  std::replace(path.begin(), path.end(), '/', '\\');
  run.Call([&](KivSdContext* ctx) { return KivSdCreatePath(ctx, path.c_str()); });
}
void RemoveFolder(FaultRun& run) {
  const TemporaryFolder folder;
  folder.Make("old");
  folder.Write("old/file", "x");
  folder.Make("old/inner");
  const std::string path = folder.Path("old");
  run.Call([&](KivSdContext* ctx) { return KivSdDirRemove(ctx, path.c_str()); });
}
void ChangeFolder(FaultRun& run) {
  const std::string before = std::filesystem::current_path().string();
  run.Call([&](KivSdContext* ctx) { return KivSdDirChange(ctx, "/"); });
  std::filesystem::current_path(before);
}
void RemoveLink(FaultRun& run) {
  const TemporaryFolder folder;
  folder.Write("file", "x");
  const std::string path = folder.Path("file");
  run.Call([&](KivSdContext* ctx) { return KivSdUnLink(ctx, path.c_str()); });
}
void MakeLink(FaultRun& run) {
  const OpenFile open;
  const std::string link = open.folder.Path("link");
  run.Call(
      [&](KivSdContext* ctx) { return KivSdCreateLink(ctx, open.path.c_str(), link.c_str(), 0); });
}
void MakeCanonical(FaultRun& run) {
  char path[KIV_SYSTEM_PATH_MAX] = {};
  run.Call([&](KivSdContext*) { return KivSdFileGetCanonicalPath("a/../b", sizeof(path), path); });
}

// ---- Searches ----

void FindFirst(FaultRun& run) {
  const OpenFile open;
  const std::string pattern = open.folder.Path("*");
  KivSdFindRecord record = {};
  const uint32_t status = run.Call(
      [&](KivSdContext* ctx) { return KivSdFileFindFirst(ctx, pattern.c_str(), 0, &record); });
  if (status == KIV_ST_OK) KivSdFileFindClose(nullptr, &record);
}
void FindNext(FaultRun& run) {
  const OpenFile open;
  open.folder.Write("other", "x");
  const std::string pattern = open.folder.Path("*");
  KivSdFindRecord record = {};
  EXPECT_EQ(KivSdFileFindFirst(nullptr, pattern.c_str(), 0, &record), KIV_ST_OK);
  run.Call([&](KivSdContext* ctx) { return KivSdFileFindNext(ctx, &record); });
  KivSdFileFindClose(nullptr, &record);
}
void FindClose(FaultRun& run) {
  const OpenFile open;
  const std::string pattern = open.folder.Path("*");
  KivSdFindRecord record = {};
  EXPECT_EQ(KivSdFileFindFirst(nullptr, pattern.c_str(), 0, &record), KIV_ST_OK);
  run.Call([&](KivSdContext* ctx) { return KivSdFileFindClose(ctx, &record); });
}

void FindNames(FaultRun& run) {
  const OpenFile open;
  open.folder.Write("other", "x");
  const std::string pattern = open.folder.Path("*");
  char** names = nullptr;
  uint32_t count = 0;
  run.Call([&](KivSdContext* ctx) {
    return KivSdFileFind(nullptr, ctx, nullptr, pattern.c_str(), 0, &names, &count);
  });
  KivSdFileFreeNames(nullptr, names, count);
}

void AddToList(FaultRun& run) {
  const OpenFile open;
  const std::string pattern = open.folder.Path("*");
  KivSdFindRecord record = {};
  EXPECT_EQ(KivSdFileFindFirst(nullptr, pattern.c_str(), 0, &record), KIV_ST_OK);
  KivSdFileListItem head = {};
  EXPECT_EQ(KivSdAddFileListItem(&head, &record, 0), 0u);
  run.Call([&](KivSdContext*) {
    return KivSdAddFileListItem(&head, &record, 1) == 0 ? KIV_ST_OK : KIV_ST_OUT_OF_MEMORY;
  });
  EXPECT_EQ(KivSdDeleteFileListItems(&head), 0u);
  KivSdFileFindClose(nullptr, &record);
}

// ---- Mapped files ----

struct MappedFile {
  MappedFile() {
    EXPECT_EQ(KivSdMMAPHdlReset(&handle), KIV_ST_OK);
    EXPECT_EQ(OpenAt(nullptr), KIV_ST_OK);
  }
  ~MappedFile() { KivSdMMAPFileClose(nullptr, &handle); }

  uint32_t OpenAt(KivSdContext* ctx) {
    return KivSdMMAPFileOpen(ctx, path.c_str(), kReadAndWrite, 0, kPermissions, 0, 0, 0, &handle);
  }

  TemporaryFolder folder;
  std::string path = folder.Path("mapped");
  KivSdMMAPFile handle = {};
};

void OpenMapped(FaultRun& run) {
  MappedFile mapped;
  KivSdMMAPFileClose(nullptr, &mapped.handle);
  KivSdMMAPHdlReset(&mapped.handle);
  const uint32_t status = run.Call([&](KivSdContext* ctx) { return mapped.OpenAt(ctx); });
  if (status != KIV_ST_OK) EXPECT_EQ(mapped.OpenAt(nullptr), KIV_ST_OK);
}
void CloseMapped(FaultRun& run) {
  MappedFile mapped;
  run.Call([&](KivSdContext* ctx) { return KivSdMMAPFileClose(ctx, &mapped.handle); });
  KivSdMMAPHdlReset(&mapped.handle);
}
void WriteMapped(FaultRun& run) {
  MappedFile mapped;
  run.Call([&](KivSdContext* ctx) {
    return KivSdMMAPFileWrite(ctx, &mapped.handle, "abc", 3, &number);
  });
}
void ReadMapped(FaultRun& run) {
  MappedFile mapped;
  run.Call([&](KivSdContext* ctx) {
    return KivSdMMAPFileRead(ctx, &mapped.handle, buffer, 3, &number);
  });
}
void FlushMapped(FaultRun& run) {
  MappedFile mapped;
  run.Call([&](KivSdContext* ctx) { return KivSdMMAPFileFlush(ctx, 0, &mapped.handle); });
}

void ReadMappedAt(FaultRun& run) {
  MappedFile mapped;
  EXPECT_EQ(KivSdMMAPFileWrite(nullptr, &mapped.handle, "abc", 3, &number), KIV_ST_OK);
  run.Call([&](KivSdContext* ctx) {
    return KivSdMMAPFilePRead(ctx, &mapped.handle, buffer, 0, 3, &number);
  });
}
void WriteMappedAt(FaultRun& run) {
  MappedFile mapped;
  run.Call([&](KivSdContext* ctx) {
    return KivSdMMAPFilePWrite(ctx, &mapped.handle, "abc", 0, 3, &number, nullptr);
  });
}
void SeekMapped(FaultRun& run) {
  MappedFile mapped;
  run.Call([&](KivSdContext* ctx) {
    return KivSdMMAPFileLSeek(ctx, &mapped.handle, 0, KIV_SEEK_START, &number);
  });
}
void SetMappedEnd(FaultRun& run) {
  MappedFile mapped;
  run.Call([&](KivSdContext* ctx) {
    return KivSdMMAPFileSetEndOfFile(ctx, &mapped.handle, 4, &number, nullptr);
  });
}

// ---- Direct I/O ----

struct Direct {
  explicit Direct(uint32_t flags = 0) {
    EXPECT_EQ(OpenAt(nullptr, flags, &file), KIV_ST_OK);
    EXPECT_EQ(KivSdAlignedMemAlloc(nullptr, 1, &pages), KIV_ST_OK);
    std::memset(pages, 'x', KIV_PAGE_UNIT);
    uint32_t blocks = 0;
    EXPECT_EQ(KivSdDirectIOFileSetEndOfFile(nullptr, file, 2, &blocks), KIV_ST_OK);
  }
  ~Direct() {
    KivSdDirectIOFileClose(nullptr, file);
    KivSdAlignedMemFree(nullptr, pages);
  }

  uint32_t OpenAt(KivSdContext* ctx, uint32_t flags, uint32_t* opened) const {
    return KivSdDirectIOFileOpen(ctx, path.c_str(), KIV_ACCESS_READ | KIV_ACCESS_WRITE,
                                 KIV_SHARE_ALL, KIV_DISPOSITION_OPEN_ALWAYS, nullptr, flags,
                                 opened);
  }

  TemporaryFolder folder;
  std::string path = folder.Path("blocks");
  uint32_t file = KIV_DIRECTIO_NONE;
  void* pages = nullptr;
};

void CreateDirect(FaultRun& run) {
  const TemporaryFolder folder;
  const std::string path = folder.Path("blocks");
  run.Call([&](KivSdContext* ctx) { return KivSdDirectIOFileCreate(ctx, path.c_str()); });
}
void OpenDirect(FaultRun& run) {
  const Direct direct;
  uint32_t file = KIV_DIRECTIO_NONE;
  run.Call([&](KivSdContext* ctx) { return direct.OpenAt(ctx, KIV_OPEN_OVERLAPPED, &file); });
  if (file != KIV_DIRECTIO_NONE) KivSdDirectIOFileClose(nullptr, file);
}
void CloseDirect(FaultRun& run) {
  const Direct direct;
  run.Call([&](KivSdContext* ctx) { return KivSdDirectIOFileClose(ctx, direct.file); });
}
void RemoveDirect(FaultRun& run) {
  const Direct direct;
  run.Call([&](KivSdContext* ctx) { return KivSdDirectIOFileRemove(ctx, direct.path.c_str()); });
}
void ReadDirect(FaultRun& run) {
  const Direct direct;
  run.Call([&](KivSdContext* ctx) {
    return KivSdDirectIOFileRead(ctx, direct.file, 0, direct.pages, 1, nullptr, &number);
  });
}
void WriteDirect(FaultRun& run) {
  const Direct direct;
  run.Call([&](KivSdContext* ctx) {
    return KivSdDirectIOFileWrite(ctx, direct.file, 0, direct.pages, 1, nullptr, &number);
  });
}

bool HasStarted(uint32_t status) {
  return status == KIV_ST_OK || status == KIV_ST_DIRECT_READ_PENDING ||
         status == KIV_ST_DIRECT_WRITE_PENDING;
}

// Starts a transfer. "Pending" is a success, and has an error in the record.
template <bool isRead>
void StartDirect(FaultRun& run) {
  const Direct direct(KIV_OPEN_OVERLAPPED);
  KivSdNoWaitCb record = {};
  uint32_t started = 0;
  run.Call([&](KivSdContext* ctx) {
    started = isRead
                  ? KivSdDirectIOFileRead(ctx, direct.file, 0, direct.pages, 1, &record, &number)
                  : KivSdDirectIOFileWrite(ctx, direct.file, 0, direct.pages, 1, &record, &number);
    if (!HasStarted(started)) return started;
    *ctx = {};
    return KIV_ST_OK;
  });
  if (HasStarted(started)) KivSdDirectIOWait(nullptr, direct.file, &record, &number);
  KivSdDirectIONoWaitCbsTerm(nullptr, &record, 1);
}
void CollectDirect(FaultRun& run) {
  const Direct direct(KIV_OPEN_OVERLAPPED);
  KivSdNoWaitCb record = {};
  KivSdDirectIOFileWrite(nullptr, direct.file, 0, direct.pages, 1, &record, &number);
  const uint32_t status = run.Call(
      [&](KivSdContext* ctx) { return KivSdDirectIOWait(ctx, direct.file, &record, &number); });
  const bool mustBeCollected = status == KIV_ST_EVENT_WAIT;
  if (mustBeCollected) KivSdDirectIOWait(nullptr, direct.file, &record, &number);
  KivSdDirectIONoWaitCbsTerm(nullptr, &record, 1);
}
void SetPointer(FaultRun& run) {
  const Direct direct;
  run.Call([&](KivSdContext* ctx) {
    return KivSdDirectIOFilePointerSet(ctx, direct.file, 1, KIV_SEEK_START, &number);
  });
}
void GetPointer(FaultRun& run) {
  const Direct direct;
  run.Call(
      [&](KivSdContext* ctx) { return KivSdDirectIOFilePointerGet(ctx, direct.file, &number); });
}
void GetSize(FaultRun& run) {
  const Direct direct;
  run.Call([&](KivSdContext* ctx) { return KivSdDirectIOFileSize(ctx, direct.file, &number); });
}
void SetDirectEnd(FaultRun& run) {
  const Direct direct;
  run.Call([&](KivSdContext* ctx) {
    return KivSdDirectIOFileSetEndOfFile(ctx, direct.file, 1, &number);
  });
}
void MakeRecords(FaultRun& run) {
  KivSdNoWaitCb records[2] = {};
  run.Call([&](KivSdContext* ctx) { return KivSdDirectIONoWaitCbsInit(ctx, records, 2); });
  KivSdDirectIONoWaitCbsTerm(nullptr, records, 2);
}
void EndRecords(FaultRun& run) {
  KivSdNoWaitCb records[2] = {};
  EXPECT_EQ(KivSdDirectIONoWaitCbsInit(nullptr, records, 2), KIV_ST_OK);
  run.Call([&](KivSdContext* ctx) { return KivSdDirectIONoWaitCbsTerm(ctx, records, 2); });
}

// ---- The write pause ----

struct Pause {
  Pause() {
    EXPECT_EQ(KivSdEventCreate(nullptr, &pause.drained), KIV_ST_OK);
    EXPECT_EQ(KivSdEventCreate(nullptr, &pause.resume), KIV_ST_OK);
    KivRWLockInit(nullptr, 0, &pause.lock, 1, 0);
    lease.pause = &pause;
  }
  ~Pause() {
    KivRWLockFreeQNodes(&lease.locks);
    KivSdEventClose(nullptr, &pause.drained);
    KivSdEventClose(nullptr, &pause.resume);
  }

  KivSdWritePause pause = {};
  KivSdWriteLease lease = {};
};

void TakeLease(FaultRun& run) {
  Pause pause;
  const uint32_t status = run.Call([&](KivSdContext* ctx) {
    static_cast<void>(ctx);
    return KivSdGetWriteIOLease(&pause.lease);
  });
  EXPECT_EQ(pause.pause.leases, status == KIV_ST_OK ? 1 : 0);
}
void WriteUnderLease(FaultRun& run) {
  Pause pause;
  const OpenFile open;
  run.Call([&](KivSdContext* ctx) {
    pause.lease.ctx = ctx;
    return KivSdLeasedFilePWrite(&pause.lease, open.file, "abc", 0, 3, &number, nullptr);
  });
  EXPECT_EQ(pause.pause.leases, 0);
}

void AppendUnderLease(FaultRun& run) {
  Pause pause;
  const OpenFile open;
  run.Call([&](KivSdContext* ctx) {
    pause.lease.ctx = ctx;
    return KivSdLeasedFileWrite(&pause.lease, open.file, "abc", 3, &number);
  });
  EXPECT_EQ(pause.pause.leases, 0);
}
void ReturnLease(FaultRun& run) {
  Pause pause;
  EXPECT_EQ(KivSdGetWriteIOLease(&pause.lease), KIV_ST_OK);
  run.Call([&](KivSdContext*) { return KivSdReleaseWriteIOLease(&pause.lease); });
  EXPECT_EQ(pause.pause.leases, 0);
}
// A pauser that could not pause changes nothing, or leaves the pause in force.
void PauseWriters(FaultRun& run) {
  Pause pause;
  run.Call([&](KivSdContext*) { return KivSdPauseWriteIO(&pause.lease, 0); });
  KivSdUnpauseWriteIO(&pause.lease);
  EXPECT_EQ(pause.pause.paused, 0u);
}
void UnpauseWriters(FaultRun& run) {
  Pause pause;
  EXPECT_EQ(KivSdPauseWriteIO(&pause.lease, 0), KIV_ST_OK);
  run.Call([&](KivSdContext*) { return KivSdUnpauseWriteIO(&pause.lease); });
  EXPECT_EQ(pause.pause.paused, 0u);
}

// Failures of the gates are ignored: waiting writers and the pauser look again. A node of the lock
// without kernel objects waits by spinning.
const std::vector<FaultOutcome> kPauseOutcomes = {
    {"malloc", KIV_ST_OUT_OF_MEMORY},   {"malloc", KIV_ST_OK},
    {"CreateMutexA", KIV_ST_OK},        {"CreateSemaphoreA", KIV_ST_OK},
    {"CreateEventA", KIV_ST_OK},        {"SetEvent", KIV_ST_OK},
    {"ResetEvent", KIV_ST_OK},          {"WaitForSingleObject", KIV_ST_EVENT_WAIT},
    {"WaitForSingleObject", KIV_ST_OK},
};

const FaultScenario kScenarios[] = {
    {"KivSdFileCreate", OpenIn<Create>, {{"_creat", KIV_ST_FILE_CREATE}}},
    {"KivSdFileOpen", OpenIn<OpenPlain>, {{"_open", KIV_ST_FILE_OPEN}}},
    {"KivSdFileOpen64", OpenIn<OpenLarge>, {{"_open", KIV_ST_FILE_OPEN}}},
    {"KivSdFileOpenExclusiveMode", OpenIn<OpenNew>, {{"_open", KIV_ST_FILE_OPEN}}},
    {"KivSdFileSOpen",
     OpenIn<OpenShared>,
     {{"_sopen", KIV_ST_FILE_SHARE_OPEN}, {"malloc", KIV_ST_FILE_SHARE_OPEN}},
     {KIV_ST_FILE_SHARING}},
    {"KivSdFileSOpenExclusiveMode",
     OpenIn<OpenSharedNew>,
     {{"_sopen", KIV_ST_FILE_SHARE_OPEN}, {"malloc", KIV_ST_FILE_SHARE_OPEN}},
     {KIV_ST_FILE_SHARING}},
    {"KivSdFileClose", OnOpenFile<KivSdFileClose>, {{"_close", KIV_ST_FILE_CLOSE}}},
    {"KivSdFileRead", OnOpenFile<Read>, {{"_read", KIV_ST_FILE_READ}}},
    {"KivSdFilePRead",
     OnOpenFile<ReadAt>,
     {{"_get_osfhandle", KIV_ST_FILE_READ}, {"ReadFile", KIV_ST_FILE_READ}}},
    {"KivSdFileWrite",
     OnOpenFile<Write>,
     {{"_write", KIV_ST_FILE_WRITE}, {"_write", KIV_ST_DISK_FULL, ENOSPC}}},
    {"KivSdFilePWrite",
     OnOpenFile<WriteAt>,
     {{"_get_osfhandle", KIV_ST_FILE_READ},
      {"WriteFile", KIV_ST_FILE_WRITE},
      {"WriteFile", KIV_ST_DISK_FULL, ENOSPC}}},
    {"KivSdFileGets",
     OnOpenFile<ReadLine>,
     {{"_tell", KIV_ST_FILE_GETS}, {"_read", KIV_ST_FILE_GETS}, {"_lseek", KIV_ST_FILE_GETS}}},
    {"KivSdFileFlush", OnOpenFile<KivSdFileFlush>, {{"_commit", KIV_ST_FILE_FLUSH}}},
    {"KivSdFileLSeek", OnOpenFile<Seek>, {{"_lseek", KIV_ST_FILE_SEEK}}},
    {"KivSdFileLSeek64", OnOpenFile<Seek64>, {{"_lseeki64", KIV_ST_FILE_SEEK}}},
    {"KivSdFileTell", OnOpenFile<Tell>, {{"_tell", KIV_ST_FILE_TELL}}},
    {"KivSdFileLength", OnOpenFile<Length>, {{"_filelength", KIV_ST_FILE_LENGTH}}},
    {"KivSdFileEof", OnOpenFile<IsAtEnd>, {{"_eof", KIV_ST_OK}}},
    {"KivSdFileSetEndOfFile",
     OnOpenFile<SetEnd>,
     {{"_chsize", KIV_ST_DIRECT_SET_END}, {"_chsize", KIV_ST_DISK_FULL, ENOSPC}}},
    {"KivSdDirectIOFileChangeSize",
     OnOpenFile<ChangeSize>,
     {{"_chsize", KIV_ST_DIRECT_SET_END}, {"_chsize", KIV_ST_DISK_FULL, ENOSPC}}},
    {"KivSdFileRemove", RemoveFile, {{"_unlink", KIV_ST_FILE_REMOVE}}},
    {"KivSdFileAccess", AskForAccess, {{"_access", KIV_ST_OK}}},
    {"KivSdFileGetStatus",
     AskForStatus,
     {{"_access", KIV_ST_OK}, {"_sopen", KIV_ST_OK}, {"_close", KIV_ST_OK}}},
    {"KivSdFileTempNameGet",
     MakeTemporaryName,
     {{"_tempnam", KIV_ST_FILE_TEMP_NAME},
      {"malloc", KIV_ST_FILE_TEMP_NAME},
      {"_access", KIV_ST_OK}}},
    {"KivSdDirCreate", CreateFolder, {{"_mkdir", KIV_ST_DIR_CREATE}}},
    {"KivSdDirCreateEx", CreateFolderEx, {{"_access", KIV_ST_OK}, {"_mkdir", KIV_ST_DIR_CREATE}}},
    // A parent that seems to be missing is created again.
    {"KivSdCreatePath",
     CreateFolders,
     {{"_access", KIV_ST_DIR_CREATE, kAny, Recording::kOtherError},
      {"_access", KIV_ST_OK},
      {"_mkdir", KIV_ST_DIR_CREATE, kAny, Recording::kOtherError}}},
    {"KivSdDirRemove",
     RemoveFolder,
     {{"FindFirstFileA", KIV_ST_DIR_REMOVE, kAny, Recording::kOtherError},
      {"FindNextFileA", KIV_ST_DIR_REMOVE, kAny, Recording::kOtherError},
      {"FindClose", KIV_ST_DIR_REMOVE, kAny, Recording::kOtherError},
      {"FindClose", KIV_ST_OK},
      {"_rmdir", KIV_ST_OK},
      {"_rmdir", KIV_ST_DIR_REMOVE},
      {"_unlink", KIV_ST_DIR_REMOVE, kAny, Recording::kOtherError},
      {"_chmod", KIV_ST_OK},
      {"_chmod", KIV_ST_DIR_REMOVE, kAny, Recording::kOtherError},
      {"malloc", KIV_ST_DIR_REMOVE, kAny, Recording::kOtherError}}},
    {"KivSdDirChange",
     ChangeFolder,
     {{"_chdir", KIV_ST_DIR_CHANGE}, {"_chdir", KIV_ST_DIR_MISSING, ENOENT}}},
    {"KivSdUnLink", RemoveLink, {{"DeleteFileA", KIV_ST_FILE_REMOVE}}},
    {"KivSdFileGetCanonicalPath",
     MakeCanonical,
     {{"GetFullPathNameA", KIV_ST_OK}},
     {},
     Recording::kNothing},
    {"KivSdFileFindFirst",
     FindFirst,
     {{"FindFirstFileA", KIV_ST_FIND_START}, {"malloc", KIV_ST_OUT_OF_MEMORY}}},
    {"KivSdFileFindNext", FindNext, {{"FindNextFileA", KIV_ST_FIND_NEXT}}},
    {"KivSdFileFindClose", FindClose, {{"FindClose", KIV_ST_FIND_CLOSE}}},
    {"KivSdMMAPFileOpen", OpenMapped, {{"_open", KIV_ST_FILE_OPEN}}},
    {"KivSdMMAPFileClose", CloseMapped, {{"_close", KIV_ST_FILE_CLOSE}}},
    {"KivSdMMAPFileWrite",
     WriteMapped,
     {{"_write", KIV_ST_FILE_WRITE}, {"_write", KIV_ST_DISK_FULL, ENOSPC}},
     {},
     Recording::kNoError},
    {"KivSdMMAPFileRead", ReadMapped, {{"_read", KIV_ST_FILE_READ}}, {}, Recording::kNoError},
    {"KivSdMMAPFileFlush", FlushMapped, {{"_commit", KIV_ST_FILE_FLUSH}}, {}, Recording::kNoError},
    {"KivSdDirectIOFileCreate",
     CreateDirect,
     {{"CreateFileA", KIV_ST_FILE_CREATE}, {"CloseHandle", KIV_ST_FILE_CLOSE}}},
    {"KivSdDirectIOFileOpen",
     OpenDirect,
     {{"CreateFileA", KIV_ST_FILE_CREATE}, {"CreateFileA", KIV_ST_FILE_SHARING, EBUSY}}},
    {"KivSdDirectIOFileClose", CloseDirect, {{"CloseHandle", KIV_ST_FILE_CLOSE}}},
    {"KivSdDirectIOFileRemove", RemoveDirect, {{"DeleteFileA", KIV_ST_FILE_REMOVE}}},
    {"KivSdDirectIOFileRead",
     ReadDirect,
     {{"SetFilePointer", KIV_ST_DIRECT_POINTER_SET},
      {"ReadFile", KIV_ST_FILE_READ},
      {"ReadFile", KIV_ST_FILE_END, KIV_OS_END_OF_FILE}}},
    {"KivSdDirectIOFileWrite",
     WriteDirect,
     {{"WriteFile", KIV_ST_FILE_WRITE}, {"WriteFile", KIV_ST_DISK_FULL, ENOSPC}}},
    {"KivSdDirectIOFileRead_nowait",
     StartDirect<true>,
     {{"CreateEventA", KIV_ST_EVENT_CREATE},
      {"ReadFile", KIV_ST_DIRECT_READ},
      {"ResetEvent", KIV_ST_DIRECT_READ},
      {"ResetEvent", KIV_ST_FILE_END, KIV_OS_END_OF_FILE},
      {"malloc", KIV_ST_DIRECT_READ},
      {"ReadFile", KIV_ST_FILE_END, KIV_OS_END_OF_FILE}}},
    {"KivSdDirectIOFileWrite_nowait",
     StartDirect<false>,
     {{"CreateEventA", KIV_ST_EVENT_CREATE},
      {"WriteFile", KIV_ST_DIRECT_WRITE},
      {"ResetEvent", KIV_ST_DIRECT_WRITE},
      {"ResetEvent", KIV_ST_DISK_FULL, ENOSPC},
      {"malloc", KIV_ST_DIRECT_WRITE},
      {"WriteFile", KIV_ST_DISK_FULL, ENOSPC}}},
    {"KivSdDirectIOWait",
     CollectDirect,
     {{"WaitForSingleObject", KIV_ST_EVENT_WAIT, kAny, Recording::kWaitResult},
      {"GetOverlappedResult", KIV_ST_DIRECT_COMPLETION},
      {"GetOverlappedResult", KIV_ST_DISK_FULL, ENOSPC},
      {"ResetEvent", KIV_ST_COMPLETION_RESET}}},
    {"KivSdDirectIOFilePointerSet", SetPointer, {{"SetFilePointer", KIV_ST_DIRECT_POINTER_SET}}},
    {"KivSdDirectIOFilePointerGet", GetPointer, {{"SetFilePointer", KIV_ST_DIRECT_POINTER_GET}}},
    {"KivSdDirectIOFileSize", GetSize, {{"GetFileSize", KIV_ST_FILE_LENGTH}}},
    {"KivSdDirectIOFileSetEndOfFile",
     SetDirectEnd,
     {{"SetFilePointer", KIV_ST_DIRECT_POINTER_SET}, {"SetEndOfFile", KIV_ST_DIRECT_SET_END}}},
    {"KivSdDirectIONoWaitCbsInit", MakeRecords, {{"CreateEventA", KIV_ST_EVENT_CREATE}}},
    {"KivSdDirectIONoWaitCbsTerm", EndRecords, {{"CloseHandle", KIV_ST_EVENT_CLOSE}}},
    {"KivSdCreateLink", MakeLink, {{"CreateHardLinkA", KIV_ST_FILE_CREATE}}},
    {"KivSdAddFileListItem",
     AddToList,
     {{"malloc", KIV_ST_OUT_OF_MEMORY}},
     {},
     Recording::kNothing},
    {"KivSdFileFind",
     FindNames,
     {{"FindFirstFileA", KIV_ST_OK},
      {"FindNextFileA", KIV_ST_FIND_NEXT},
      {"FindClose", KIV_ST_OK},
      {"GetFullPathNameA", KIV_ST_OK},
      {"malloc", KIV_ST_OUT_OF_MEMORY, kAny, Recording::kNoError},
      {"malloc", KIV_ST_OK},
      {"realloc", KIV_ST_OUT_OF_MEMORY, kAny, Recording::kNoError}}},
    {"KivSdMMAPFilePRead",
     ReadMappedAt,
     {{"_get_osfhandle", KIV_ST_FILE_READ}, {"ReadFile", KIV_ST_FILE_READ}},
     {},
     Recording::kNoError},
    {"KivSdMMAPFilePWrite",
     WriteMappedAt,
     {{"_get_osfhandle", KIV_ST_FILE_READ},
      {"WriteFile", KIV_ST_FILE_WRITE},
      {"WriteFile", KIV_ST_DISK_FULL, ENOSPC}}},
    {"KivSdMMAPFileLSeek", SeekMapped, {{"_lseek", KIV_ST_FILE_SEEK}}, {}, Recording::kNoError},
    {"KivSdMMAPFileSetEndOfFile",
     SetMappedEnd,
     {{"_chsize", KIV_ST_DIRECT_SET_END}, {"_chsize", KIV_ST_DISK_FULL, ENOSPC}}},
    {"KivSdLeasedFileWrite",
     AppendUnderLease,
     {{"_write", KIV_ST_FILE_WRITE}, {"_write", KIV_ST_DISK_FULL, ENOSPC}}},
    {"KivSdReleaseWriteIOLease",
     ReturnLease,
     {{"SetEvent", KIV_ST_EVENT_CLEAR}},
     {},
     Recording::kNothing},
    {"KivSdPauseWriteIO", PauseWriters, kPauseOutcomes, {}, Recording::kNothing},
    {"KivSdUnpauseWriteIO", UnpauseWriters, kPauseOutcomes, {}, Recording::kNothing},
    {"KivSdGetWriteIOLease", TakeLease, {}, {}, Recording::kNothing},
    {"KivSdLeasedFilePWrite",
     WriteUnderLease,
     {{"_get_osfhandle", KIV_ST_FILE_READ},
      {"WriteFile", KIV_ST_FILE_WRITE},
      {"WriteFile", KIV_ST_DISK_FULL, ENOSPC}}},
};

INSTANTIATE_TEST_SUITE_P(Files, FaultLoop, testing::ValuesIn(kScenarios), NameOfScenario);

}  // namespace
