#include "os/process.h"

#include "os/w32/win32.h"

namespace kiv::os {

const uint32_t kErrorAccessDenied = ERROR_ACCESS_DENIED;

void* CurrentProcessHandle() { return GetCurrentProcess(); }

uint32_t CurrentProcessId() { return GetCurrentProcessId(); }

Wait WaitForProcess(void* handle, uint32_t timeoutMs) {
  const DWORD result = WaitForSingleObject(handle, timeoutMs);
  return {result, result == WAIT_OBJECT_0 ? 0 : GetLastError()};
}

Result EndProcess(void* handle, uint32_t exitCode) {
  return FromBool(TerminateProcess(handle, exitCode));
}

ValueResult<uint32_t> ReadPriorityClass(void* handle) {
  const DWORD priorityClass = GetPriorityClass(handle);
  const Result result = FromBool(priorityClass != 0);
  return {result.ok, result.error, priorityClass};
}

Result WritePriorityClass(void* handle, uint32_t priorityClass) {
  return FromBool(SetPriorityClass(handle, priorityClass));
}

}  // namespace kiv::os
