// Files by name, through the C runtime. Errors are errno.
#ifndef KIV_OS_FILE_NAMES_H
#define KIV_OS_FILE_NAMES_H

#include "os/os.h"

namespace kiv::os {

// What IsAccessible tests.
constexpr uint32_t kAccessExists = 0;
constexpr uint32_t kAccessRead = 4;

// Also false if the path is null.
bool IsAccessible(const char* path, uint32_t mode);

Result RemoveFileByName(const char* path);

// The path of a file that does not exist, in the runtime's folder for temporary files; the file's
// name begins with the prefix. The caller frees the text with RawFree. Null on failure.
ValueResult<char*> MakeTemporaryName(const char* prefix);

// The runtime's identifier of the process.
int32_t RuntimeProcessId();

}  // namespace kiv::os

#endif
