#include "os/process.h"

#include "os/w32/win32.h"

namespace kiv::os {

const uint32_t kErrorAccessDenied = ERROR_ACCESS_DENIED;

void* CurrentProcessHandle() { return GetCurrentProcess(); }

uint32_t CurrentProcessId() { return GetCurrentProcessId(); }

Wait WaitForProcess(void* process, uint32_t timeoutMs) {
  const DWORD result = WaitForSingleObject(process, timeoutMs);
  return {result, result == WAIT_OBJECT_0 ? 0 : GetLastError()};
}

Result EndProcess(void* process, uint32_t exitCode) {
  return FromBool(TerminateProcess(process, exitCode));
}

ValueResult<uint32_t> ReadPriorityClass(void* process) {
  const DWORD priorityClass = GetPriorityClass(process);
  const Result result = FromBool(priorityClass != 0);
  return {result.ok, result.error, priorityClass};
}

Result WritePriorityClass(void* process, uint32_t priorityClass) {
  return FromBool(SetPriorityClass(process, priorityClass));
}

}  // namespace kiv::os
