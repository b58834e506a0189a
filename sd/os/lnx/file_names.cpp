#include "os/file_names.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <initializer_list>

#include "os/heap.h"
#include "os/lnx/open_file.h"
#include "os/lnx/posix.h"

namespace kiv::os {
namespace {

constexpr uint32_t kAccessWrite = 2;

// Names of one process differ by a number. How many numbers are tried before the call gives up:
constexpr uint32_t kAttempts = 32767;

bool IsFolder(const char* path) {
  struct stat status;
  return stat(path, &status) == 0 && S_ISDIR(status.st_mode);
}

// The folder for temporary files. A program with raised rights ignores the environment.
const char* TemporaryFolder() {
  for (const char* variable : {"TMP", "TMPDIR"}) {
    const char* folder = secure_getenv(variable);
    if (folder != nullptr && folder[0] != '\0' && IsFolder(folder)) return folder;
  }
  return P_tmpdir;
}

// Also true of a link to a missing file, which an open would follow.
bool IsTaken(const char* path) {
  struct stat status;
  return lstat(path, &status) == 0 || errno != ENOENT;
}

}  // namespace

bool IsAccessible(const char* path, uint32_t mode) {
  if (path == nullptr) return false;
  int asked = F_OK;
  if ((mode & kAccessRead) != 0) asked |= R_OK;
  if ((mode & kAccessWrite) != 0) asked |= W_OK;
  if (faccessat(AT_FDCWD, path, asked, AT_EACCESS) != 0) return false;
  if ((mode & kAccessWrite) == 0) return true;
  struct stat status;
  return stat(path, &status) == 0 && !IsReadOnly(status);
}

Result RemoveFileByName(const char* path) { return RemoveName(path); }

ValueResult<char*> MakeTemporaryName(const char* prefix) {
  const char* folder = TemporaryFolder();
  constexpr size_t kNumberBytes = sizeof "/32767";
  const size_t size = std::strlen(folder) + std::strlen(prefix) + kNumberBytes;
  auto* name = static_cast<char*>(RawAllocate(size));
  if (name == nullptr) return {false, ENOMEM, nullptr};
  for (uint32_t number = 1; number <= kAttempts; ++number) {
    std::snprintf(name, size, "%s/%s%u", folder, prefix, number);
    if (!IsTaken(name)) return {true, 0, name};
  }
  RawFree(name);
  return {false, EEXIST, nullptr};
}

int32_t RuntimeProcessId() { return getpid(); }

}  // namespace kiv::os
