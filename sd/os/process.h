// Processes: identity, end, and priority class.
#ifndef KIV_OS_PROCESS_H
#define KIV_OS_PROCESS_H

#include "os/kernel_objects.h"
#include "os/os.h"

namespace kiv::os {

// OS error if the caller may not access the process.
extern const uint32_t kErrorAccessDenied;

void* CurrentProcessHandle();  // a pseudo-handle, the same number in every process
uint32_t CurrentProcessId();

// Waits until the process has ended. A handle is a process's identifier on Linux, where a process
// that no longer exists counts as ended.
Wait WaitForProcess(void* handle, uint32_t timeoutMs);

// Linux ends other processes by a signal: their exit code is lost.
Result EndProcess(void* handle, uint32_t exitCode);

ValueResult<uint32_t> ReadPriorityClass(void* handle);
Result WritePriorityClass(void* handle, uint32_t priorityClass);

}  // namespace kiv::os

#endif
