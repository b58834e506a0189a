// Processes: identity, end, and priority class.
#ifndef KIV_OS_PROCESS_H
#define KIV_OS_PROCESS_H

#include "os/os.h"

namespace kiv::os {

// OS error if the caller may not access the process.
extern const uint32_t kErrorAccessDenied;

void* CurrentProcessHandle();  // a pseudo-handle, the same number in every process
uint32_t CurrentProcessId();

Result EndProcess(void* process, uint32_t exitCode);

ValueResult<uint32_t> ReadPriorityClass(void* process);
Result WritePriorityClass(void* process, uint32_t priorityClass);

}  // namespace kiv::os

#endif
