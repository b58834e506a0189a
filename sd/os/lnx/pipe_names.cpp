#include "os/lnx/pipe_names.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "os/lnx/posix.h"

namespace kiv::os {
namespace {

constexpr uint32_t kMagic = 0x5076694B;
constexpr char kLocalPrefix[] = "\\\\.\\PIPE\\";
constexpr size_t kPrefixLength = sizeof kLocalPrefix - 1;
constexpr int kNoDescriptor = -1;
constexpr char kBeforeNumber = ':';  // in the name of a socket; never part of an encoded name

// The content of a name's file.
struct Header {
  uint32_t magic;
  PipeTraits traits;
};

// ---- The folder ----

ValueResult<int> FailedDescriptor() { return {false, static_cast<uint32_t>(errno), kNoDescriptor}; }

int LockWhole(int descriptor) {
  int locked;
  do {
    locked = flock(descriptor, LOCK_EX);
  } while (locked == -1 && errno == EINTR);
  return locked;
}

// ---- Locks of bytes ----

struct flock ByteLock(uint32_t first, uint32_t count) {
  struct flock lock = {};
  lock.l_type = F_WRLCK;
  lock.l_whence = SEEK_SET;
  lock.l_start = first;
  lock.l_len = count;
  return lock;
}

bool TakeByte(int file, uint32_t number) {
  struct flock lock = ByteLock(number, 1);
  return fcntl(file, F_OFD_SETLK, &lock) == 0;
}

uint32_t CountInstances(int file) {
  uint32_t count = 0;
  for (uint32_t number = NextInstance(file, 0); number != 0; number = NextInstance(file, number)) {
    ++count;
  }
  return count;
}

uint32_t TakeFreeByte(int file) {
  for (uint32_t number = 1; number <= kMaxPipeInstance; ++number) {
    if (TakeByte(file, number)) return number;
  }
  return 0;
}

// ---- A name's file ----

ValueResult<int> OpenFile(int folder, const char* file, int flags) {
  const int opened = openat(folder, file, O_RDWR | O_NOFOLLOW | O_CLOEXEC | flags, 0600);
  if (opened == -1) return FailedDescriptor();
  struct stat status;
  if (fstat(opened, &status) == 0 && S_ISREG(status.st_mode) && status.st_uid == geteuid()) {
    return {true, 0, opened};
  }
  close(opened);
  return {false, EACCES, kNoDescriptor};
}

Result WriteHeader(int file, const PipeTraits& traits) {
  const Header header = {kMagic, traits};
  const ssize_t written = pwrite(file, &header, sizeof header, 0);
  if (written == sizeof header) return {true, 0};
  return {false, static_cast<uint32_t>(written == -1 ? errno : ENOSPC)};
}

bool AreValid(const PipeTraits& traits) {
  return traits.access >= 1 && traits.access <= 3 && traits.isMessage <= 1 &&
         traits.maximumInstances >= 1 && traits.maximumInstances <= kUnlimitedPipes;
}

// EIO if the file does not hold traits.
ValueResult<PipeTraits> ReadHeader(int file) {
  Header header;
  const ssize_t count = pread(file, &header, sizeof header, 0);
  if (count == -1) return {false, static_cast<uint32_t>(errno), {}};
  const bool isWhole = count == sizeof header && header.magic == kMagic;
  if (!isWhole || !AreValid(header.traits)) return {false, EIO, {}};
  return {true, 0, header.traits};
}

bool AreEqual(const PipeTraits& one, const PipeTraits& other) {
  return one.access == other.access && one.isMessage == other.isMessage &&
         one.maximumInstances == other.maximumInstances;
}

Result JoinInstances(int file, const PipeTraits& traits, bool onlyFirst) {
  const uint32_t count = CountInstances(file);
  if (count == 0) return WriteHeader(file, traits);
  const ValueResult<PipeTraits> common = ReadHeader(file);
  if (!common.ok) return {false, common.error};
  if (onlyFirst || !AreEqual(common.value, traits)) return {false, EACCES};
  const bool isFull =
      traits.maximumInstances != kUnlimitedPipes && count >= traits.maximumInstances;
  return {!isFull, isFull ? uint32_t{EBUSY} : 0};
}

// ---- Garbage ----

// A file without instances, or the socket of an instance that has ended.
bool IsGarbage(int folder, const char* entry) {
  if (entry[0] != kPipeFile || entry[1] != '-') return false;
  NameFile name = {};
  const char* colon = std::strchr(entry, kBeforeNumber);
  const size_t length = colon != nullptr ? static_cast<size_t>(colon - entry) : std::strlen(entry);
  static_assert(sizeof(dirent::d_name) <= sizeof name.text);
  std::memcpy(name.text, entry, length);
  const ValueResult<int> file = OpenFile(folder, name.text, 0);
  if (!file.ok) return file.error == ENOENT;
  bool isInUse = NextInstance(file.value, 0) != 0;
  const auto number = colon != nullptr ? static_cast<uint32_t>(std::atoi(colon + 1)) : 0;
  if (number != 0) isInUse = NextInstance(file.value, number - 1) == number;
  close(file.value);
  return !isInUse;
}

void RemoveGarbage(int folder) {
  const int copy = openat(folder, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  DIR* entries = copy != -1 ? fdopendir(copy) : nullptr;
  if (entries == nullptr) {
    if (copy != -1) close(copy);
    return;
  }
  while (const dirent* entry = readdir(entries)) {
    if (IsGarbage(folder, entry->d_name)) unlinkat(folder, entry->d_name, 0);
  }
  closedir(entries);
}

std::atomic<bool> garbageRemoved{false};

}  // namespace

PipeFolder::PipeFolder() : descriptor_(kNoDescriptor), result_({true, 0}) {
  const ValueResult<int> opened = OpenNameFolder();
  result_ = {opened.ok, opened.error};
  if (!opened.ok) return;
  descriptor_ = opened.value;
  result_ = FromErrno(LockWhole(descriptor_));
}

PipeFolder::~PipeFolder() {
  if (descriptor_ == kNoDescriptor) return;
  flock(descriptor_, LOCK_UN);  // a child that was forked meanwhile has the descriptor, too
  close(descriptor_);
}

Result FileOfPipe(const char* path, NameFile* file) {
  if (std::strncmp(path, kLocalPrefix, kPrefixLength) != 0) return {false, EHOSTUNREACH};
  const char* name = path + kPrefixLength;
  return *name != '\0' ? FileOfName(kPipeFile, name, file) : Result{false, EINVAL};
}

// The kernel finds any lock of a range: look again in front of it until there is none.
uint32_t NextInstance(int file, uint32_t after) {
  uint32_t found = 0;
  uint32_t last = kMaxPipeInstance;
  while (last > after) {
    struct flock lock = ByteLock(after + 1, last - after);
    if (fcntl(file, F_OFD_GETLK, &lock) != 0 || lock.l_type == F_UNLCK) break;
    found = lock.l_start > after ? static_cast<uint32_t>(lock.l_start) : after + 1;
    last = found - 1;
  }
  return found;
}

ValueResult<PipeInstance> TakeInstance(const PipeFolder& folder, const NameFile& name,
                                       const PipeTraits& traits, bool onlyFirst) {
  if (!garbageRemoved.exchange(true)) RemoveGarbage(folder.descriptor());
  const ValueResult<int> file = OpenFile(folder.descriptor(), name.text, O_CREAT);
  if (!file.ok) return {false, file.error, {kNoDescriptor, 0}};
  const Result joined = JoinInstances(file.value, traits, onlyFirst);
  const uint32_t number = joined.ok ? TakeFreeByte(file.value) : 0;
  if (number != 0) return {true, 0, {file.value, number}};
  close(file.value);
  return {false, joined.ok ? uint32_t{EBUSY} : joined.error, {kNoDescriptor, 0}};
}

void LeaveInstance(const PipeFolder& folder, const NameFile& name, const PipeInstance& instance) {
  // A file does not see its own lock: only other instances count.
  if (folder.result().ok) {
    RemoveSocket(folder, name, instance.number);
    if (NextInstance(instance.file, 0) == 0) unlinkat(folder.descriptor(), name.text, 0);
  }
  close(instance.file);
}

ValueResult<ExistingPipe> FindPipe(const PipeFolder& folder, const NameFile& name) {
  const ValueResult<int> file = OpenFile(folder.descriptor(), name.text, 0);
  if (!file.ok) return {false, file.error, {}};
  const bool exists = NextInstance(file.value, 0) != 0;
  const ValueResult<PipeTraits> traits = ReadHeader(file.value);
  if (exists && traits.ok) return {true, 0, {file.value, traits.value}};
  close(file.value);
  return {false, exists ? traits.error : uint32_t{ENOENT}, {}};
}

}  // namespace kiv::os
