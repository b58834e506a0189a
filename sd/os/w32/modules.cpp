#include "os/modules.h"

#include <cstring>

#include "os/w32/win32.h"

namespace kiv::os {

static_assert(static_cast<DWORD>(ModuleSearch::kOwnFolderFirst) == LOAD_WITH_ALTERED_SEARCH_PATH);

const uint32_t kErrorFirstModuleText = ERROR_INVALID_MODULETYPE;
const uint32_t kErrorLastModuleText = ERROR_BAD_EXE_FORMAT;

ValueResult<void*> LoadModule(const char* path, ModuleSearch search) {
  return FromPointer(LoadLibraryExA(path, nullptr, static_cast<DWORD>(search)));
}

Result UnloadModule(void* module) { return FromBool(FreeLibrary(static_cast<HMODULE>(module))); }

ValueResult<void*> FindEntry(void* module, const char* name) {
  return FromPointer(reinterpret_cast<void*>(GetProcAddress(static_cast<HMODULE>(module), name)));
}

void* MainModule() { return GetModuleHandleA(nullptr); }

ValueResult<uint32_t> ModulePath(void* module, char* buffer, uint32_t sizeBytes) {
  const DWORD length = GetModuleFileNameA(static_cast<HMODULE>(module), buffer, sizeBytes);
  const Result result = FromBool(length != 0);
  return {result.ok, result.error, length};
}

void UpperCase(char* text) { _strupr(text); }

ValueResult<uint32_t> SystemMessage(uint32_t error, const char* const* inserts, char* buffer,
                                    uint32_t sizeBytes) {
  const DWORD filling =
      inserts != nullptr ? FORMAT_MESSAGE_ARGUMENT_ARRAY : FORMAT_MESSAGE_IGNORE_INSERTS;
  // FormatMessageA takes arrays and va_lists through one parameter type, and only reads them.
  auto* arguments = reinterpret_cast<va_list*>(const_cast<char**>(inserts));
  const DWORD length = FormatMessageA(FORMAT_MESSAGE_FROM_SYSTEM | filling, nullptr, error, 0,
                                      buffer, sizeBytes, arguments);
  const Result result = FromBool(length != 0);
  return {result.ok, result.error, length};
}

}  // namespace kiv::os
