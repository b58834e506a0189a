// Searching a folder by a pattern, and absolute paths.
#ifndef KIV_OS_FILE_SEARCH_H
#define KIV_OS_FILE_SEARCH_H

#include "kivsdu/filesearch.h"
#include "os/os.h"

namespace kiv::os {

// OS errors: the search has no further match; the path is too long.
extern const uint32_t kErrorNoMoreFiles;
extern const uint32_t kErrorPathTooLong;

// The pattern that matches every entry of a folder.
extern const char* const kEveryFile;

// Stores the first match. "*" matches any characters and "?" one; "*.*" matches every name, on every
// platform. On failure the value is the platform's invalid handle.
ValueResult<void*> StartFileSearch(const char* pattern, KivSdFindData* found);
Result ContinueFileSearch(void* search, KivSdFindData* found);
Result EndFileSearch(void* search);

// Stores the absolute path with its terminator and returns its length without the terminator. If
// the path does not fit, returns the size that the buffer must have. Returns 0 on failure.
uint32_t AbsolutePath(const char* path, uint32_t sizeBytes, char* buffer);

}  // namespace kiv::os

#endif
