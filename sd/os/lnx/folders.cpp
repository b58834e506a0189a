#include "os/folders.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "os/lnx/open_file.h"
#include "os/lnx/posix.h"

namespace kiv::os {

const uint32_t kErrnoMissing = ENOENT;

Result ChangeFolder(const char* path) { return FromErrno(chdir(path)); }

Result MakeFolder(const char* path) {
  constexpr mode_t kEveryRight = 0777;  // less those that the process masks
  return FromErrno(mkdir(path, kEveryRight));
}

Result RemoveFolder(const char* path) { return FromErrno(rmdir(path)); }

// Changes nothing unless it must: other names of the file have the same rights. The rights of a
// link are those of its target, which must not change.
Result MakeWritable(const char* path) {
  struct stat status;
  const Result found = FromErrno(lstat(path, &status));
  if (!found.ok || !IsReadOnly(status)) return found;
  return FromErrno(chmod(path, (status.st_mode & 07777) | S_IRUSR | S_IWUSR));
}

}  // namespace kiv::os
