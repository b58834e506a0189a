#include "os/lnx/open_file.h"

#include <fcntl.h>
#include <limits.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>

#include "os/lnx/posix.h"
#include "os/lnx/share_claims.h"

namespace kiv::os {
namespace {

constexpr mode_t kAnyoneWrites = S_IWUSR | S_IWGRP | S_IWOTH;
constexpr mode_t kNewFile = S_IRUSR | S_IRGRP | S_IROTH | kAnyoneWrites;

// How often a file that others make and remove at the same moment is tried.
constexpr int kAttempts = 16;

int OpenRetried(const char* path, int flags, mode_t mode) {
  int descriptor = -1;
  do {
    descriptor = open(path, flags | O_CLOEXEC | O_NOCTTY, mode);
  } while (descriptor == -1 && errno == EINTR);
  return descriptor;
}

// Opens or makes the file. `made` tells which, because the rights of a new file bind only later
// opens.
int OpenOrMake(const char* path, const OpenPlan& plan, bool* made) {
  const int flags = plan.access | plan.moreFlags;
  const mode_t mode = plan.readOnlyIfNew ? kNewFile & ~kAnyoneWrites : kNewFile;
  *made = plan.making == Making::kOnlyNew;
  if (*made) return OpenRetried(path, flags | O_CREAT | O_EXCL, mode);
  for (int attempt = 0; attempt < kAttempts; ++attempt) {
    *made = false;
    int descriptor = OpenRetried(path, flags, 0);
    if (descriptor != -1 || errno != ENOENT || plan.making == Making::kNever) return descriptor;
    *made = true;
    descriptor = OpenRetried(path, flags | O_CREAT | O_EXCL, mode);
    if (descriptor != -1 || errno != EEXIST) return descriptor;
  }
  // A link to a missing file: it exists for O_EXCL only.
  return OpenRetried(path, flags | O_CREAT, mode);
}

// A descriptor that cannot write needs a second one to empty its file.
Result Empty(int descriptor, int access) {
  if (access != O_RDONLY) return FromErrno(ftruncate(descriptor, 0));
  char path[sizeof "/proc/self/fd/" + 16];
  std::snprintf(path, sizeof path, "/proc/self/fd/%d", descriptor);
  const int writer = OpenRetried(path, O_WRONLY | O_TRUNC, 0);
  if (writer == -1) return {false, static_cast<uint32_t>(errno)};
  return CloseOnce(writer);
}

// Between the making of a file and the claim, others may open it and write. A claim that denies this
// must find the file empty. Without such a claim they may as well have written after it.
bool HoldsEarlierBytes(int descriptor, const OpenPlan& plan) {
  struct stat status;
  return plan.empties && (plan.denies & kRightWrite) != 0 && fstat(descriptor, &status) == 0 &&
         status.st_size != 0;
}

// Checks, claims and empties the file of an opened descriptor.
Result Settle(int descriptor, const OpenPlan& plan, bool made, OpenedFile* opened) {
  struct stat status;
  if (fstat(descriptor, &status) == -1) return {false, static_cast<uint32_t>(errno)};
  if (S_ISDIR(status.st_mode)) return {false, EISDIR};
  if (plan.access != O_RDONLY && !made && IsReadOnly(status)) return {false, EACCES};
  opened->isRegular = S_ISREG(status.st_mode);
  if (!opened->isRegular) return {true, 0};
  const Result claimed = ClaimFile(descriptor, plan.uses, plan.denies);
  if (!claimed.ok) {
    opened->heldByAnother = claimed.error == kErrorConflict;
    return claimed;
  }
  const bool empties = made ? HoldsEarlierBytes(descriptor, plan) : plan.empties;
  return empties ? Empty(descriptor, plan.access) : Result{true, 0};
}

int Allocate(int descriptor, int mode, int64_t from, int64_t to) {
  int failed = 0;
  do {
    failed = fallocate(descriptor, mode, from, to - from) == 0 ? 0 : errno;
  } while (failed == EINTR);
  return failed;
}

// Gives back the space behind the end of a file, unless another writer has put bytes there.
void ReleaseSpaceBehind(int descriptor, int64_t sizeBytes) {
  struct stat status;
  if (fstat(descriptor, &status) == 0 && status.st_size == sizeBytes) {
    static_cast<void>(FromErrno(ftruncate(descriptor, sizeBytes)));
  }
}

// Another writer may append meanwhile. The space is therefore reserved before the size changes, so
// that a full disk leaves the size alone, and then the size is raised in one step.
Result Grow(int descriptor, int64_t from, int64_t to) {
  int failed = Allocate(descriptor, FALLOC_FL_KEEP_SIZE, from, to);
  if (failed == EOPNOTSUPP || failed == ENOSYS) return FromErrno(ftruncate(descriptor, to));
  if (failed == 0) failed = Allocate(descriptor, 0, from, to);
  if (failed != 0) ReleaseSpaceBehind(descriptor, from);
  return FromCode(failed);
}

}  // namespace

OpenedFile OpenFile(const char* path, const OpenPlan& plan) {
  OpenedFile opened = {-1, EFAULT, false, false};
  if (path == nullptr) return opened;
  bool made = false;
  const int descriptor = OpenOrMake(path, plan, &made);
  opened.error = static_cast<uint32_t>(errno);
  if (descriptor == -1) return opened;
  const Result settled = Settle(descriptor, plan, made, &opened);
  opened.error = settled.error;
  if (settled.ok) {
    opened.descriptor = descriptor;
  } else {
    static_cast<void>(CloseOnce(descriptor));
  }
  return opened;
}

bool IsReadOnly(const struct stat& status) {
  return S_ISREG(status.st_mode) && (status.st_mode & kAnyoneWrites) == 0;
}

Result RemoveName(const char* path) {
  if (path == nullptr) return {false, EFAULT};
  struct stat status;
  if (lstat(path, &status) == -1) return {false, static_cast<uint32_t>(errno)};
  if (IsReadOnly(status)) return {false, EACCES};
  return FromErrno(unlink(path));
}

void RemoveNameOf(int descriptor) {
  char link[sizeof "/proc/self/fd/" + 16];
  std::snprintf(link, sizeof link, "/proc/self/fd/%d", descriptor);
  char path[PATH_MAX];
  const ssize_t length = readlink(link, path, sizeof path - 1);
  if (length <= 0) return;
  path[length] = '\0';
  struct stat file;
  struct stat named;
  if (fstat(descriptor, &file) == -1 || lstat(path, &named) == -1) return;
  if (file.st_dev == named.st_dev && file.st_ino == named.st_ino) unlink(path);
}

Result CloseOnce(int descriptor) {
  const Result closed = FromErrno(close(descriptor));
  // The kernel has closed the descriptor even if a signal interrupted the call.
  return closed.error == EINTR ? Result{true, 0} : closed;
}

Result ResizeFile(int descriptor, int64_t sizeBytes) {
  struct stat status;
  if (fstat(descriptor, &status) == -1) return {false, static_cast<uint32_t>(errno)};
  if ((fcntl(descriptor, F_GETFL) & O_ACCMODE) == O_RDONLY) return {false, EACCES};
  const bool grows = S_ISREG(status.st_mode) && sizeBytes > status.st_size;
  if (grows) return Grow(descriptor, status.st_size, sizeBytes);
  return FromErrno(ftruncate(descriptor, sizeBytes));
}

}  // namespace kiv::os
