// Folders by name, through the C runtime. Errors are errno.
#ifndef KIV_OS_FOLDERS_H
#define KIV_OS_FOLDERS_H

#include "os/os.h"

namespace kiv::os {

// errno of a path that does not exist.
extern const uint32_t kErrnoMissing;

Result ChangeFolder(const char* path);
Result MakeFolder(const char* path);

// Fails unless the folder is empty.
Result RemoveFolder(const char* path);

// Permits everybody (lnx: the owner) to write the file. A read-only file cannot be removed.
Result MakeWritable(const char* path);

}  // namespace kiv::os

#endif
