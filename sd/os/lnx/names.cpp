#include "os/lnx/names.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "os/lnx/holders.h"
#include "os/lnx/name_folder.h"
#include "os/lnx/posix.h"

namespace kiv::os {
namespace {

constexpr uint64_t kMagic = 0x6B69767364750001;  // with the layout's version

// The first page of an object's file. Another process can change every field at any time.
struct Header {
  uint64_t magic;
  uint32_t kind;
  int32_t maximumCount;
  uint32_t protection;
  char name[kMaxNameBytes + 1];
  alignas(64) ObjectWord semaphore;
  alignas(64) pthread_mutex_t mutex;
};
static_assert(sizeof(Header) <= kBlockOffset);

// What this process has of an object.
struct Entry {
  NamedObject object;
  uint32_t references;
  dev_t device;
  ino_t inode;
  Header* header;
  NameFile file;
  Entry* next;
};

// Guards all that follows, and the holders' file.
pthread_mutex_t namesMutex = PTHREAD_MUTEX_INITIALIZER;

constexpr size_t kBuckets = 1024;
Entry* buckets[kBuckets] = {};  // by inode number

// Entries without references that stay for the mutex in them: a thread still owns it.
uint32_t ownedEntries = 0;

bool swept = false;

// Whether others may not know which objects this process holds: the holders file is another one.
bool holdsAreLost = false;

uint32_t LastErrno() { return static_cast<uint32_t>(errno); }

// ---- Entries ----

Entry** BucketOf(ino_t inode) { return &buckets[inode % kBuckets]; }

Entry* FindEntry(const struct stat& file) {
  Entry* entry = *BucketOf(file.st_ino);
  while (entry != nullptr && (entry->inode != file.st_ino || entry->device != file.st_dev)) {
    entry = entry->next;
  }
  return entry;
}

void AddEntry(Entry* entry) {
  Entry** bucket = BucketOf(entry->inode);
  entry->next = *bucket;
  *bucket = entry;
}

void RemoveEntry(Entry* entry) {
  Entry** place = BucketOf(entry->inode);
  while (*place != entry) place = &(*place)->next;
  *place = entry->next;
  munmap(entry->header, kBlockOffset);
  if (entry->object.file != -1) close(entry->object.file);
  std::free(entry);
}

bool IsOwned(const Entry* entry) {
  return entry->object.kind == NamedKind::kMutex && IsOwnedHere(&entry->object.mutex);
}

void RemoveOrSetAside(Entry* entry) {
  if (IsOwned(entry)) {
    ++ownedEntries;
  } else {
    RemoveEntry(entry);
  }
}

void RemoveEntriesWithoutOwner() {
  for (size_t i = 0; i < kBuckets && ownedEntries != 0; ++i) {
    Entry* next = nullptr;
    for (Entry* entry = buckets[i]; entry != nullptr; entry = next) {
      next = entry->next;
      if (entry->references != 0 || IsOwned(entry)) continue;
      --ownedEntries;
      RemoveEntry(entry);
    }
  }
}

// ---- Steps that exclude other processes ----

bool IsRemovable(int folder, const char* file) {
  struct stat found = {};
  return file[0] == kObjectFile && fstatat(folder, file, &found, AT_SYMLINK_NOFOLLOW) == 0 &&
         FindEntry(found) == nullptr && !IsHeldByOthers(found.st_ino);
}

// Removes the files of objects whose processes ended without closing them.
void Sweep(int folder) {
  const int copy = openat(folder, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  DIR* files = copy == -1 ? nullptr : fdopendir(copy);
  if (files == nullptr) {
    if (copy != -1) close(copy);
    return;
  }
  while (const dirent* file = readdir(files)) {
    if (IsRemovable(folder, file->d_name)) unlinkat(folder, file->d_name, 0);
  }
  closedir(files);
}

void HoldAgain() {
  for (const Entry* entry : buckets) {
    for (; entry != nullptr; entry = entry->next) {
      if (entry->references != 0) HoldObject(entry->inode);
    }
  }
}

Result EnterSteps(int folder) {
  bool isNew = false;
  const Result opened = OpenHolders(folder, &isNew);
  if (!opened.ok) return opened;
  holdsAreLost = holdsAreLost || isNew;
  const Result begun = BeginSteps();
  if (!begun.ok) return begun;
  if (holdsAreLost) HoldAgain();
  holdsAreLost = false;
  if (!swept) Sweep(folder);
  swept = true;
  return {true, 0};
}

// Keeps all other threads and processes from making, opening and closing. Without `ok`, only the
// other threads of this process are kept away.
class Steps {
 public:
  Steps() {
    pthread_mutex_lock(&namesMutex);
    const ValueResult<int> opened = OpenNameFolder();
    folder_ = opened.value;
    begun_ = opened.ok ? EnterSteps(folder_) : Result{false, opened.error};
  }

  ~Steps() {
    RemoveEntriesWithoutOwner();
    if (begun_.ok) EndSteps();
    if (folder_ != -1) close(folder_);
    pthread_mutex_unlock(&namesMutex);
  }

  Steps(const Steps&) = delete;
  Steps& operator=(const Steps&) = delete;

  bool ok() const { return begun_.ok; }
  uint32_t error() const { return begun_.error; }
  int folder() const { return folder_; }

 private:
  int folder_;
  Result begun_;
};

// ---- Files ----

struct ObjectFile {
  const char* name;
  NameFile path;
  int folder;
  int file;  // -1 if it is not open
  struct stat status;
};

// A link could lead to a file that is no object.
bool IsTrusted(const struct stat& status) {
  return S_ISREG(status.st_mode) && status.st_uid == geteuid() && status.st_nlink == 1;
}

void CloseObjectFile(ObjectFile* object) {
  if (object->file != -1) close(object->file);
  object->file = -1;
}

Result OpenObjectFile(ObjectFile* object, int flags) {
  object->file = openat(object->folder, object->path.text,
                        flags | O_RDWR | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK, S_IRUSR | S_IWUSR);
  if (object->file == -1) return {false, LastErrno()};
  if (fstat(object->file, &object->status) == 0 && IsTrusted(object->status)) return {true, 0};
  CloseObjectFile(object);
  return {false, EACCES};
}

// An object exists if this process or another holds it.
bool Exists(const ObjectFile& object) {
  const Entry* entry = FindEntry(object.status);
  return (entry != nullptr && entry->references != 0) || IsHeldByOthers(object.status.st_ino);
}

Header* MapHeader(int file) {
  void* mapped = mmap(nullptr, kBlockOffset, PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
  return mapped == MAP_FAILED ? nullptr : static_cast<Header*>(mapped);
}

// ---- Making and opening ----

uint64_t BlockBytes(uint32_t asked) {
  return (uint64_t{asked} + kBlockOffset - 1) / kBlockOffset * kBlockOffset;
}

// Gives the file its memory, so that touching a block cannot fail later.
Result Allocate(const ObjectFile& object, const NamedShape& shape) {
  const uint64_t bytes =
      kBlockOffset + (shape.kind == NamedKind::kBlock ? BlockBytes(shape.blockBytes) : 0);
  int error;
  do {
    error = posix_fallocate(object.file, 0, static_cast<off_t>(bytes));
  } while (error == EINTR);
  return FromCode(error);
}

Result FillHeader(Header* header, const ObjectFile& object, const NamedShape& shape) {
  header->kind = static_cast<uint32_t>(shape.kind);
  header->maximumCount = shape.maximumCount;
  header->protection = shape.protection;
  std::strcpy(header->name, object.name);
  header->semaphore.store(static_cast<uint32_t>(shape.initialCount), std::memory_order_relaxed);
  const Result prepared = PrepareMutex(&header->mutex, Scope::kShared);
  header->magic = kMagic;
  return prepared;
}

// Whether the file is one of this library with this name and kind.
Result CheckHeader(const Header* header, const ObjectFile& object, NamedKind kind) {
  const bool isOurs =
      header->magic == kMagic && std::strncmp(header->name, object.name, sizeof header->name) == 0;
  if (!isOurs) return {false, EACCES};
  const bool isOfKind = header->kind == static_cast<uint32_t>(kind);
  return isOfKind ? Result{true, 0} : Result{false, EEXIST};
}

Entry* NewEntry(const ObjectFile& object, Header* header) {
  auto* entry = static_cast<Entry*>(std::calloc(1, sizeof(Entry)));
  if (entry == nullptr) return nullptr;
  entry->object.file = -1;
  entry->device = object.status.st_dev;
  entry->inode = object.status.st_ino;
  entry->file = object.path;
  entry->header = header;
  AddEntry(entry);
  return entry;
}

// A size of the header would be another process's word; the file's own size is the kernel's.
uint64_t BlockBytesOf(int file) {
  struct stat status = {};
  if (fstat(file, &status) != 0 || status.st_size < kBlockOffset) return 0;
  return static_cast<uint64_t>(status.st_size) / kBlockOffset * kBlockOffset - kBlockOffset;
}

// Describes the object to this process.
Result Describe(Entry* entry, const ObjectFile& object, NamedKind kind) {
  NamedObject* described = &entry->object;
  described->kind = kind;
  described->maximumCount = entry->header->maximumCount;
  described->protection = entry->header->protection;
  described->semaphore = &entry->header->semaphore;
  described->mutex.mutex = &entry->header->mutex;
  if (kind != NamedKind::kBlock) return {true, 0};
  described->file = fcntl(object.file, F_DUPFD_CLOEXEC, 0);
  described->blockBytes = BlockBytesOf(object.file);
  return described->file == -1 ? Result{false, LastErrno()} : Result{true, 0};
}

// Adds the process's entry of an object that has its header. The entry owns the mapping afterwards.
ValueResult<NamedObject*> Attach(const ObjectFile& object, Header* header, NamedKind kind) {
  Result outcome = CheckHeader(header, object, kind);
  Entry* entry = outcome.ok ? NewEntry(object, header) : nullptr;
  if (entry == nullptr) {
    munmap(header, kBlockOffset);
    return {false, outcome.ok ? ENOMEM : outcome.error, nullptr};
  }
  outcome = Describe(entry, object, kind);
  if (outcome.ok) outcome = HoldObject(object.status.st_ino);
  if (!outcome.ok) {
    RemoveEntry(entry);
    return {false, outcome.error, nullptr};
  }
  entry->references = 1;
  return {true, 0, &entry->object};
}

ValueResult<NamedObject*> AttachExisting(const ObjectFile& object, NamedKind kind) {
  Entry* entry = FindEntry(object.status);
  if (entry == nullptr) {
    if (object.status.st_size < kBlockOffset) return {false, EACCES, nullptr};
    Header* header = MapHeader(object.file);
    if (header == nullptr) return {false, LastErrno(), nullptr};
    return Attach(object, header, kind);
  }
  if (entry->object.kind != kind) return {false, EEXIST, nullptr};
  if (entry->references == 0) {
    const Result held = HoldObject(entry->inode);
    if (!held.ok) return {false, held.error, nullptr};
    --ownedEntries;
  }
  ++entry->references;
  return {true, 0, &entry->object};
}

ValueResult<NamedObject*> AttachNew(const ObjectFile& object, const NamedShape& shape) {
  Result outcome = Allocate(object, shape);
  if (!outcome.ok) return {false, outcome.error, nullptr};
  Header* header = MapHeader(object.file);
  if (header == nullptr) return {false, LastErrno(), nullptr};
  outcome = FillHeader(header, object, shape);
  if (outcome.ok) return Attach(object, header, shape.kind);
  munmap(header, kBlockOffset);
  return {false, outcome.error, nullptr};
}

ValueResult<NamedObject*> MakeIn(ObjectFile* object, const NamedShape& shape) {
  const Result opened = OpenObjectFile(object, O_CREAT);
  if (!opened.ok) return {false, opened.error, nullptr};
  if (Exists(*object)) return AttachExisting(*object, shape.kind);
  // A file that nobody holds is not used again: a thread may still own a mutex in it.
  if (object->status.st_size != 0) {
    CloseObjectFile(object);
    unlinkat(object->folder, object->path.text, 0);
    const Result again = OpenObjectFile(object, O_CREAT);
    if (!again.ok) return {false, again.error, nullptr};
  }
  const ValueResult<NamedObject*> made = AttachNew(*object, shape);
  if (!made.ok) unlinkat(object->folder, object->path.text, 0);
  return made;
}

ValueResult<NamedObject*> OpenIn(ObjectFile* object, NamedKind kind) {
  const Result opened = OpenObjectFile(object, 0);
  if (!opened.ok) return {false, opened.error, nullptr};
  if (Exists(*object)) return AttachExisting(*object, kind);
  unlinkat(object->folder, object->path.text, 0);
  return {false, ENOENT, nullptr};
}

bool IsStillFileOf(int folder, const Entry* entry) {
  struct stat found = {};
  return fstatat(folder, entry->file.text, &found, AT_SYMLINK_NOFOLLOW) == 0 &&
         found.st_ino == entry->inode && found.st_dev == entry->device;
}

// Nobody can reach the object any more.
void EndEntry(int folder, Entry* entry) {
  if (IsStillFileOf(folder, entry)) unlinkat(folder, entry->file.text, 0);
  if (entry->object.kind == NamedKind::kMutex) ReleaseMutexWholly(&entry->object.mutex);
}

template <typename Action>
ValueResult<NamedObject*> WithFile(const char* name, Action action) {
  ObjectFile object = {name, {}, -1, -1, {}};
  const Result named = FileOfName(kObjectFile, name, &object.path);
  if (!named.ok) return {false, named.error, nullptr};
  const Steps steps;
  if (!steps.ok()) return {false, steps.error(), nullptr};
  object.folder = steps.folder();
  const ValueResult<NamedObject*> outcome = action(&object);
  CloseObjectFile(&object);
  return outcome;
}

}  // namespace

ValueResult<NamedObject*> MakeNamed(const char* name, const NamedShape& shape) {
  return WithFile(name, [&](ObjectFile* object) { return MakeIn(object, shape); });
}

ValueResult<NamedObject*> OpenNamed(const char* name, NamedKind kind) {
  return WithFile(name, [&](ObjectFile* object) { return OpenIn(object, kind); });
}

// If other processes cannot be kept away, the object's file stays, and is found to be unused later.
void ReleaseNamed(NamedObject* object) {
  auto* entry = reinterpret_cast<Entry*>(object);
  const Steps steps;
  if (--entry->references != 0) return;
  DropObject(entry->inode);
  if (steps.ok() && !IsHeldByOthers(entry->inode)) EndEntry(steps.folder(), entry);
  RemoveOrSetAside(entry);
}

}  // namespace kiv::os
