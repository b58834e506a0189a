#include "os/file_search.h"

#include "support/lnx/seam_import.h"

namespace kiv::test {

using os::Result;
using os::ValueResult;

constexpr intptr_t kInvalidHandle = -1;

KIV_SEAM_PRIMITIVE(StartFileSearch, "_ZN3kiv2os15StartFileSearchEPKcP13KivSdFindData")
KIV_SEAM_PRIMITIVE(ContinueFileSearch, "_ZN3kiv2os18ContinueFileSearchEPvP13KivSdFindData")
KIV_SEAM_PRIMITIVE(EndFileSearch, "_ZN3kiv2os13EndFileSearchEPv")
KIV_SEAM_PRIMITIVE(AbsolutePath, "_ZN3kiv2os12AbsolutePathEPKcjPc")

namespace {

void* FindFirstFile(const char* pattern, KivSdFindData* found) {
  return ToValue(RealStartFileSearch(pattern, found));
}

int32_t FindNextFile(void* search, KivSdFindData* found) {
  return ToBool(RealContinueFileSearch(search, found));
}

int32_t FindClose(void* search) { return ToBool(RealEndFileSearch(search)); }

uint32_t GetFullPathName(const char* path, uint32_t sizeBytes, char* buffer, char**) {
  return RealAbsolutePath(path, sizeBytes, buffer);
}

SeamImport<decltype(FindFirstFile)> findFirstFile("FindFirstFileA", FindFirstFile);
SeamImport<decltype(FindNextFile)> findNextFile("FindNextFileA", FindNextFile);
SeamImport<decltype(FindClose)> findClose("FindClose", FindClose);
SeamImport<decltype(GetFullPathName)> getFullPathName("GetFullPathNameA", GetFullPathName);

}  // namespace

ValueResult<void*> WrapStartFileSearch(const char* pattern, KivSdFindData* found) {
  void* search = findFirstFile.Call(pattern, found);
  const Result result = FromBool(reinterpret_cast<intptr_t>(search) != kInvalidHandle ? 1 : 0);
  return {result.ok, result.error, search};
}

Result WrapContinueFileSearch(void* search, KivSdFindData* found) {
  return FromBool(findNextFile.Call(search, found));
}

Result WrapEndFileSearch(void* search) { return FromBool(findClose.Call(search)); }

uint32_t WrapAbsolutePath(const char* path, uint32_t sizeBytes, char* buffer) {
  char** const noName = nullptr;
  return getFullPathName.Call(path, sizeBytes, buffer, noName);
}

}  // namespace kiv::test
