#include "os/machine.h"

#include "os/w32/win32.h"

namespace kiv::os {

const uint32_t kErrorBufferTooSmall = ERROR_INSUFFICIENT_BUFFER;

uint32_t SystemVersion() { return GetVersion(); }

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
