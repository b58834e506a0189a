#include "os/modules.h"

#include "support/lnx/seam_import.h"
#include "support/system_interface.h"

namespace kiv::test {

using os::ModuleSearch;
using os::Result;
using os::ValueResult;

KIV_SEAM_PRIMITIVE(LoadModule, "_ZN3kiv2os10LoadModuleEPKcNS0_12ModuleSearchE")
KIV_SEAM_PRIMITIVE(UnloadModule, "_ZN3kiv2os12UnloadModuleEPv")
KIV_SEAM_PRIMITIVE(FindEntry, "_ZN3kiv2os9FindEntryEPvPKc")
KIV_SEAM_PRIMITIVE(MainModule, "_ZN3kiv2os10MainModuleEv")
KIV_SEAM_PRIMITIVE(ModulePath, "_ZN3kiv2os10ModulePathEPvPcj")
KIV_SEAM_PRIMITIVE(SystemMessage, "_ZN3kiv2os13SystemMessageEjPKPKcPcj")

namespace {

HMODULE LoadLibraryExA(const char* path, HANDLE, DWORD flags) {
  return ToValue(RealLoadModule(path, static_cast<ModuleSearch>(flags)));
}

BOOL FreeLibrary(HMODULE module) { return ToBool(RealUnloadModule(module)); }

void* GetProcAddress(HMODULE module, const char* name) {
  return ToValue(RealFindEntry(module, name));
}

HMODULE GetModuleHandleA(const char*) { return RealMainModule(); }

DWORD GetModuleFileNameA(HMODULE module, char* buffer, DWORD sizeBytes) {
  return ToValue(RealModulePath(module, buffer, sizeBytes));
}

DWORD FormatMessageA(DWORD flags, const void*, DWORD error, DWORD, char* buffer, DWORD sizeBytes,
                     const char* const* inserts) {
  const bool isFilled = (flags & FORMAT_MESSAGE_ARGUMENT_ARRAY) != 0;
  return ToValue(RealSystemMessage(error, isFilled ? inserts : nullptr, buffer, sizeBytes));
}

SeamImport<decltype(LoadLibraryExA)> loadLibrary("LoadLibraryExA", LoadLibraryExA);
SeamImport<decltype(FreeLibrary)> freeLibrary("FreeLibrary", FreeLibrary);
SeamImport<decltype(GetProcAddress)> getProcAddress("GetProcAddress", GetProcAddress);
SeamImport<decltype(GetModuleHandleA)> getModuleHandle("GetModuleHandleA", GetModuleHandleA);
SeamImport<decltype(GetModuleFileNameA)> getModuleFileName("GetModuleFileNameA",
                                                           GetModuleFileNameA);
SeamImport<decltype(FormatMessageA)> formatMessage("FormatMessageA", FormatMessageA);

}  // namespace

ValueResult<void*> WrapLoadModule(const char* path, ModuleSearch search) {
  return FromPointer(loadLibrary.Call(path, nullptr, static_cast<DWORD>(search)));
}

Result WrapUnloadModule(void* module) { return FromBool(freeLibrary.Call(module)); }

ValueResult<void*> WrapFindEntry(void* module, const char* name) {
  return FromPointer(getProcAddress.Call(module, name));
}

void* WrapMainModule() { return getModuleHandle.Call(nullptr); }

ValueResult<uint32_t> WrapModulePath(void* module, char* buffer, uint32_t sizeBytes) {
  const DWORD length = getModuleFileName.Call(module, buffer, sizeBytes);
  const Result result = FromBool(length != 0);
  return {result.ok, result.error, length};
}

ValueResult<uint32_t> WrapSystemMessage(uint32_t error, const char* const* inserts, char* buffer,
                                        uint32_t sizeBytes) {
  const DWORD filling =
      inserts != nullptr ? FORMAT_MESSAGE_ARGUMENT_ARRAY : FORMAT_MESSAGE_IGNORE_INSERTS;
  const DWORD length = formatMessage.Call(FORMAT_MESSAGE_FROM_SYSTEM | filling, nullptr, error, 0u,
                                          buffer, sizeBytes, inserts);
  const Result result = FromBool(length != 0);
  return {result.ok, result.error, length};
}

}  // namespace kiv::test
