// Folders by name, as the C runtime sees them. Errors are errno.
#ifndef KIV_OS_FOLDERS_H
#define KIV_OS_FOLDERS_H

#include "os/os.h"

namespace kiv::os {

// errno of a path that does not exist.
extern const uint32_t kErrnoMissing;

Result ChangeFolder(const char* path);
Result MakeFolder(const char* path);

// Of a folder that is empty.
Result RemoveFolder(const char* path);

// Lets a file be read and written by everybody, so that it can be removed.
Result MakeWritable(const char* path);

}  // namespace kiv::os

#endif
