#include "os/registry.h"

#include "support/lnx/seam_import.h"
#include "support/system_interface.h"

namespace kiv::test {

using os::RegistryValue;
using os::Result;
using os::ValueResult;

constexpr REGSAM kKeyRead = 0x20019;

KIV_SEAM_PRIMITIVE(OpenRegistryKey, "_ZN3kiv2os15OpenRegistryKeyEPKc")
KIV_SEAM_PRIMITIVE(LargestRegistryValue, "_ZN3kiv2os20LargestRegistryValueEPv")
KIV_SEAM_PRIMITIVE(ReadRegistryValue, "_ZN3kiv2os17ReadRegistryValueEPvPKcS1_j")
KIV_SEAM_PRIMITIVE(CloseRegistryKey, "_ZN3kiv2os16CloseRegistryKeyEPv")

namespace {

// These calls return their error.
template <typename Outcome>
LSTATUS ToStatus(const Outcome& result) {
  return static_cast<LSTATUS>(result.error);
}

Result FromStatus(LSTATUS status) {
  return {status == ERROR_SUCCESS, static_cast<uint32_t>(status)};
}

LSTATUS RegOpenKeyExA(HKEY, const char* path, DWORD, REGSAM, HKEY* key) {
  const ValueResult<void*> opened = RealOpenRegistryKey(path);
  *key = opened.value;
  return ToStatus(opened);
}

LSTATUS RegQueryInfoKeyA(HKEY key, char*, DWORD*, DWORD*, DWORD*, DWORD*, DWORD*, DWORD*, DWORD*,
                         DWORD* largestBytes, DWORD*, void*) {
  const ValueResult<uint32_t> largest = RealLargestRegistryValue(key);
  *largestBytes = largest.value;
  return ToStatus(largest);
}

LSTATUS RegQueryValueExA(HKEY key, const char* name, DWORD*, DWORD* type, BYTE* data,
                         DWORD* sizeBytes) {
  const ValueResult<RegistryValue> read = RealReadRegistryValue(key, name, data, *sizeBytes);
  *type = read.value.type;
  *sizeBytes = read.value.sizeBytes;
  return ToStatus(read);
}

LSTATUS RegCloseKey(HKEY key) { return ToStatus(RealCloseRegistryKey(key)); }

SeamImport<decltype(RegOpenKeyExA)> regOpenKey("RegOpenKeyExA", RegOpenKeyExA);
SeamImport<decltype(RegQueryInfoKeyA)> regQueryInfoKey("RegQueryInfoKeyA", RegQueryInfoKeyA);
SeamImport<decltype(RegQueryValueExA)> regQueryValue("RegQueryValueExA", RegQueryValueExA);
SeamImport<decltype(RegCloseKey)> regCloseKey("RegCloseKey", RegCloseKey);

}  // namespace

ValueResult<void*> WrapOpenRegistryKey(const char* path) {
  HKEY key = nullptr;
  const Result result = FromStatus(regOpenKey.Call(HKEY_LOCAL_MACHINE, path, 0u, kKeyRead, &key));
  return {result.ok, result.error, key};
}

ValueResult<uint32_t> WrapLargestRegistryValue(void* key) {
  DWORD largest = 0;
  DWORD* const none = nullptr;
  const Result result = FromStatus(regQueryInfoKey.Call(key, nullptr, none, none, none, none, none,
                                                        none, none, &largest, none, nullptr));
  return {result.ok, result.error, largest};
}

ValueResult<RegistryValue> WrapReadRegistryValue(void* key, const char* name, void* buffer,
                                                 uint32_t sizeBytes) {
  DWORD type = 0;
  DWORD size = sizeBytes;
  const Result result =
      FromStatus(regQueryValue.Call(key, name, nullptr, &type, static_cast<BYTE*>(buffer), &size));
  return {result.ok, result.error, {type, size}};
}

Result WrapCloseRegistryKey(void* key) { return FromStatus(regCloseKey.Call(key)); }

}  // namespace kiv::test
