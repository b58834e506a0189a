#include "os/machine.h"

#include <cstring>

#include "support/lnx/seam_import.h"
#include "support/system_interface.h"

namespace kiv::test {

using os::MemoryStatus;
using os::Result;
using os::ValueResult;

KIV_SEAM_PRIMITIVE(SystemVersion, "_ZN3kiv2os13SystemVersionEv")
KIV_SEAM_PRIMITIVE(PhysicalMemory, "_ZN3kiv2os14PhysicalMemoryEv")
KIV_SEAM_PRIMITIVE(PagingMemory, "_ZN3kiv2os12PagingMemoryEv")
KIV_SEAM_PRIMITIVE(SystemDirectory, "_ZN3kiv2os15SystemDirectoryEPcj")
KIV_SEAM_PRIMITIVE(LoginName, "_ZN3kiv2os9LoginNameEPcj")

namespace {

uint32_t GetVersion() { return RealSystemVersion(); }

void GlobalMemoryStatus(MEMORYSTATUS* status) {
  const MemoryStatus physical = RealPhysicalMemory();
  status->dwTotalPhys = physical.totalBytes;
  status->dwAvailPhys = physical.availableBytes;
}

BOOL GlobalMemoryStatusEx(MEMORYSTATUSEX* status) {
  const ValueResult<MemoryStatus> paging = RealPagingMemory();
  status->ullTotalPageFile = paging.value.totalBytes;
  status->ullAvailPageFile = paging.value.availableBytes;
  return ToBool({paging.ok, paging.error});
}

UINT GetWindowsDirectoryA(char* buffer, UINT sizeBytes) {
  return ToValue(RealSystemDirectory(buffer, sizeBytes));
}

BOOL GetUserNameA(char* buffer, DWORD* sizeBytes) {
  const Result result = RealLoginName(buffer, *sizeBytes);
  if (result.ok) *sizeBytes = static_cast<DWORD>(std::strlen(buffer)) + 1;
  return ToBool(result);
}

SeamImport<decltype(GetVersion)> getVersion("GetVersion", GetVersion);
SeamImport<decltype(GlobalMemoryStatus)> globalMemoryStatus("GlobalMemoryStatus",
                                                            GlobalMemoryStatus);
SeamImport<decltype(GlobalMemoryStatusEx)> globalMemoryStatusEx("GlobalMemoryStatusEx",
                                                                GlobalMemoryStatusEx);
SeamImport<decltype(GetWindowsDirectoryA)> getWindowsDirectory("GetWindowsDirectoryA",
                                                               GetWindowsDirectoryA);
SeamImport<decltype(GetUserNameA)> getUserName("GetUserNameA", GetUserNameA);

}  // namespace

uint32_t WrapSystemVersion() { return getVersion.Call(); }

MemoryStatus WrapPhysicalMemory() {
  MEMORYSTATUS status = {};
  status.dwLength = sizeof status;
  globalMemoryStatus.Call(&status);
  return {status.dwTotalPhys, status.dwAvailPhys};
}

ValueResult<MemoryStatus> WrapPagingMemory() {
  MEMORYSTATUSEX status = {};
  status.dwLength = sizeof status;
  const Result result = FromBool(globalMemoryStatusEx.Call(&status));
  return {result.ok, result.error, {status.ullTotalPageFile, status.ullAvailPageFile}};
}

ValueResult<uint32_t> WrapSystemDirectory(char* buffer, uint32_t sizeBytes) {
  const UINT length = getWindowsDirectory.Call(buffer, sizeBytes);
  if (length == 0) return {false, SeamLastError(), 0};
  return {true, 0, length};
}

Result WrapLoginName(char* buffer, uint32_t sizeBytes) {
  DWORD size = sizeBytes;
  return FromBool(getUserName.Call(buffer, &size));
}

}  // namespace kiv::test
