// Opening, removing and emptying files by name, as descriptors.cpp, direct_files.cpp and
// file_names.cpp share it.
//
// A regular file that grants nobody the right to write is read-only: it is neither opened for
// writing nor removed. The rule also holds for the superuser, whom the kernel would not stop, and
// for owners of the folder.
#ifndef KIV_OS_LNX_OPEN_FILE_H
#define KIV_OS_LNX_OPEN_FILE_H

#include <sys/stat.h>

#include <cstdint>

#include "os/os.h"

namespace kiv::os {

enum class Making { kNever, kIfMissing, kOnlyNew };

struct OpenPlan {
  int access = 0;     // O_RDONLY, O_WRONLY or O_RDWR
  int moreFlags = 0;  // further flags of open()
  uint32_t uses = 0;  // rights to claim (share_claims.h)
  uint32_t denies = 0;
  Making making = Making::kNever;
  bool empties = false;  // an existing file loses its content
  bool readOnlyIfNew = false;
};

struct OpenedFile {
  int descriptor;  // -1 on failure
  uint32_t error;
  bool heldByAnother;  // the failure is a conflict of share modes
  bool isRegular;
};

// The descriptor is not inherited by programs that the process starts.
OpenedFile OpenFile(const char* path, const OpenPlan& plan);

bool IsReadOnly(const struct stat& status);

// Removes a name of a file; not of a folder, nor of a read-only file.
Result RemoveName(const char* path);

// Removes the name of an open file, wherever it was moved meanwhile. Removes nothing if the name
// is gone or names another file by now.
void RemoveNameOf(int descriptor);

// Closes a descriptor. It is closed even if the call fails.
Result CloseOnce(int descriptor);

// Gives the file this size. A file that grows gets its space at once, so that a full disk is
// reported here and not by a later write.
Result ResizeFile(int descriptor, int64_t sizeBytes);

}  // namespace kiv::os

#endif
