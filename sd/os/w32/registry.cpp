#include "os/registry.h"

#include "os/w32/win32.h"

namespace kiv::os {
namespace {

// Registry calls return their error and do not set the last error.
Result FromStatus(LSTATUS status) {
  return {status == ERROR_SUCCESS, static_cast<uint32_t>(status)};
}

}  // namespace

const uint32_t kRegistryMultiString = REG_MULTI_SZ;

ValueResult<void*> OpenRegistryKey(const char* path) {
  HKEY key = nullptr;
  const Result result = FromStatus(RegOpenKeyExA(HKEY_LOCAL_MACHINE, path, 0, KEY_READ, &key));
  return {result.ok, result.error, key};
}

ValueResult<uint32_t> LargestRegistryValue(void* key) {
  DWORD largest = 0;
  const Result result =
      FromStatus(RegQueryInfoKeyA(static_cast<HKEY>(key), nullptr, nullptr, nullptr, nullptr,
                                  nullptr, nullptr, nullptr, nullptr, &largest, nullptr, nullptr));
  return {result.ok, result.error, largest};
}

ValueResult<RegistryValue> ReadRegistryValue(void* key, const char* name, void* buffer,
                                             uint32_t sizeBytes) {
  DWORD type = 0;
  DWORD size = sizeBytes;
  const Result result = FromStatus(RegQueryValueExA(static_cast<HKEY>(key), name, nullptr, &type,
                                                    static_cast<BYTE*>(buffer), &size));
  return {result.ok, result.error, {type, size}};
}

Result CloseRegistryKey(void* key) { return FromStatus(RegCloseKey(static_cast<HKEY>(key))); }

}  // namespace kiv::os
