// Searching folders by a pattern, and absolute paths.
#ifndef KIV_OS_FILE_SEARCH_H
#define KIV_OS_FILE_SEARCH_H

#include "kivsdu/filesearch.h"
#include "os/os.h"

namespace kiv::os {

// OS errors of a search that has found everything, and of a path that is too long.
extern const uint32_t kErrorNoMoreFiles;
extern const uint32_t kErrorPathTooLong;

// What matches everything in a folder.
extern const char* const kEveryFile;

// The value is the platform's invalid handle on a failure.
ValueResult<void*> StartFileSearch(const char* pattern, KivSdFindData* found);
Result ContinueFileSearch(void* search, KivSdFindData* found);
Result EndFileSearch(void* search);

// The absolute path with its terminator. Its length without the terminator; when it does not fit,
// the size that the buffer must have; 0 when there is none.
uint32_t AbsolutePath(const char* path, uint32_t sizeBytes, char* buffer);

}  // namespace kiv::os

#endif
