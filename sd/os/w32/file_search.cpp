#include "os/file_search.h"

#include <cstddef>

#include "os/w32/win32.h"

namespace kiv::os {
namespace {

static_assert(sizeof(KivSdFindData) == sizeof(WIN32_FIND_DATAA));
static_assert(offsetof(KivSdFindData, attributes) == offsetof(WIN32_FIND_DATAA, dwFileAttributes));
static_assert(offsetof(KivSdFindData, created) == offsetof(WIN32_FIND_DATAA, ftCreationTime));
static_assert(offsetof(KivSdFindData, accessed) == offsetof(WIN32_FIND_DATAA, ftLastAccessTime));
static_assert(offsetof(KivSdFindData, written) == offsetof(WIN32_FIND_DATAA, ftLastWriteTime));
static_assert(offsetof(KivSdFindData, sizeHigh) == offsetof(WIN32_FIND_DATAA, nFileSizeHigh));
static_assert(offsetof(KivSdFindData, sizeLow) == offsetof(WIN32_FIND_DATAA, nFileSizeLow));
static_assert(offsetof(KivSdFindData, name) == offsetof(WIN32_FIND_DATAA, cFileName));
static_assert(offsetof(KivSdFindData, shortName) == offsetof(WIN32_FIND_DATAA, cAlternateFileName));
static_assert(KIV_ATTRIBUTE_DIRECTORY == FILE_ATTRIBUTE_DIRECTORY);

WIN32_FIND_DATAA* Native(KivSdFindData* found) {
  return reinterpret_cast<WIN32_FIND_DATAA*>(found);
}

}  // namespace

const uint32_t kErrorNoMoreFiles = ERROR_NO_MORE_FILES;
const uint32_t kErrorPathTooLong = ERROR_FILENAME_EXCED_RANGE;
const char* const kEveryFile = "*.*";

ValueResult<void*> StartFileSearch(const char* pattern, KivSdFindData* found) {
  HANDLE search = FindFirstFileA(pattern, Native(found));
  const Result result = FromBool(search != INVALID_HANDLE_VALUE);
  return {result.ok, result.error, search};
}

Result ContinueFileSearch(void* search, KivSdFindData* found) {
  return FromBool(FindNextFileA(search, Native(found)));
}

Result EndFileSearch(void* search) { return FromBool(FindClose(search)); }

uint32_t AbsolutePath(const char* path, uint32_t sizeBytes, char* buffer) {
  return GetFullPathNameA(path, sizeBytes, buffer, nullptr);
}

}  // namespace kiv::os
