// Files by name, as the C runtime sees them. Errors are errno.
#ifndef KIV_OS_FILE_NAMES_H
#define KIV_OS_FILE_NAMES_H

#include "os/os.h"

namespace kiv::os {

// What a file is tested for.
constexpr uint32_t kAccessExists = 0;
constexpr uint32_t kAccessRead = 4;

// False for a null path too.
bool IsAccessible(const char* path, uint32_t mode);

Result RemoveFileByName(const char* path);

// A name in the runtime's folder for temporary files that begins with the prefix, in memory that
// RawFree gives back; null when there is none.
ValueResult<char*> MakeTemporaryName(const char* prefix);

// The process's number, as the runtime tells it.
int32_t RuntimeProcessId();

}  // namespace kiv::os

#endif
