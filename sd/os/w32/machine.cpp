#include "os/machine.h"

#include "os/w32/win32.h"

namespace kiv::os {
namespace {

// Compatibility: bit 28 is tested, not the top bit. System names in the reports of running hosts
// must not change.
constexpr uint32_t kVersionPlainWindows = 1u << 28;

}  // namespace

const uint32_t kErrorBufferTooSmall = ERROR_INSUFFICIENT_BUFFER;

uint32_t SystemVersion() { return GetVersion(); }

const char* SystemName(uint32_t version) {
  return (version & kVersionPlainWindows) != 0 ? "Windows" : "Windows NT";
}

MemoryStatus PhysicalMemory() {
  MEMORYSTATUS status = {};
  status.dwLength = sizeof status;
  GlobalMemoryStatus(&status);
  return {status.dwTotalPhys, status.dwAvailPhys};
}

ValueResult<MemoryStatus> PagingMemory() {
  MEMORYSTATUSEX status = {};
  status.dwLength = sizeof status;
  const Result result = FromBool(GlobalMemoryStatusEx(&status));
  return {result.ok, result.error, {status.ullTotalPageFile, status.ullAvailPageFile}};
}

ValueResult<uint32_t> SystemDirectory(char* buffer, uint32_t sizeBytes) {
  const UINT length = GetWindowsDirectoryA(buffer, sizeBytes);
  if (length == 0) return {false, GetLastError(), 0};
  return {true, 0, length};
}

Result LoginName(char* buffer, uint32_t sizeBytes) {
  DWORD size = sizeBytes;
  return FromBool(GetUserNameA(buffer, &size));
}

}  // namespace kiv::os
