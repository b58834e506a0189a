#include "os/lnx/holders.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>

#include "os/lnx/posix.h"

namespace kiv::os {
namespace {

constexpr char kFile[] = "holders";
constexpr off_t kStepsByte = INT64_MAX - 1;

// A lock belongs to the open file, which ends with the process that opened it.
struct Holders {
  int file;
  pid_t process;
  dev_t device;
  ino_t inode;
};
Holders holders = {-1, 0, 0, 0};

// Inode numbers use far fewer bits.
off_t ByteOf(ino_t object) { return static_cast<off_t>(object & (INT64_MAX >> 1)); }

Result Lock(int command, short type, off_t byte) {
  struct flock range = {};
  range.l_type = type;
  range.l_whence = SEEK_SET;
  range.l_start = byte;
  range.l_len = 1;
  int outcome;
  do {
    outcome = fcntl(holders.file, command, &range);
  } while (outcome == -1 && errno == EINTR);
  return FromErrno(outcome);
}

bool IsSameFile(const struct stat& found) {
  return found.st_dev == holders.device && found.st_ino == holders.inode;
}

// A host may have closed all descriptors that it did not know.
ValueResult<bool> IsOwnDescriptor() {
  struct stat found = {};
  if (fstat(holders.file, &found) == 0) return {true, 0, IsSameFile(found)};
  if (errno == EBADF) return {true, 0, false};
  return {false, static_cast<uint32_t>(errno), false};
}

bool IsInFolder(int folder) {
  struct stat found = {};
  return fstatat(folder, kFile, &found, AT_SYMLINK_NOFOLLOW) == 0 && IsSameFile(found);
}

}  // namespace

Result OpenHolders(int folder, bool* isNew) {
  const ValueResult<bool> isOwn = IsOwnDescriptor();
  if (!isOwn.ok) return {false, isOwn.error};
  *isNew = !isOwn.value || holders.process != getpid() || !IsInFolder(folder);
  if (!*isNew) return {true, 0};
  const int file =
      openat(folder, kFile, O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC, S_IRUSR | S_IWUSR);
  if (file == -1) return {false, static_cast<uint32_t>(errno)};
  struct stat found = {};
  if (fstat(file, &found) != 0) {
    const auto error = static_cast<uint32_t>(errno);
    close(file);
    return {false, error};
  }
  if (isOwn.value) close(holders.file);
  holders = {file, getpid(), found.st_dev, found.st_ino};
  return {true, 0};
}

Result BeginSteps() { return Lock(F_OFD_SETLKW, F_WRLCK, kStepsByte); }

void EndSteps() { Lock(F_OFD_SETLK, F_UNLCK, kStepsByte); }

Result HoldObject(ino_t object) { return Lock(F_OFD_SETLK, F_RDLCK, ByteOf(object)); }

void DropObject(ino_t object) { Lock(F_OFD_SETLK, F_UNLCK, ByteOf(object)); }

bool IsHeldByOthers(ino_t object) {
  struct flock range = {};
  range.l_type = F_WRLCK;
  range.l_whence = SEEK_SET;
  range.l_start = ByteOf(object);
  range.l_len = 1;
  return fcntl(holders.file, F_OFD_GETLK, &range) != 0 || range.l_type != F_UNLCK;
}

}  // namespace kiv::os
