// The operating system's identity, its memory, and its users.
#ifndef KIV_OS_MACHINE_H
#define KIV_OS_MACHINE_H

#include "os/os.h"

namespace kiv::os {

// Total and available bytes of one kind of memory.
struct MemoryStatus {
  uint64_t totalBytes;
  uint64_t availableBytes;
};

// OS error of a buffer that is too small for its answer.
extern const uint32_t kErrorBufferTooSmall;

// The version word: major number in the lowest byte, minor in the next, flags above.
uint32_t SystemVersion();

MemoryStatus PhysicalMemory();
ValueResult<MemoryStatus> PagingMemory();

// The system directory with its terminator. The value is its length without the terminator;
// when it does not fit, the length that the buffer must have, and the buffer is left as it was.
ValueResult<uint32_t> SystemDirectory(char* buffer, uint32_t sizeBytes);

// The login name of the process's user, with its terminator; fails when it does not fit.
Result LoginName(char* buffer, uint32_t sizeBytes);

}  // namespace kiv::os

#endif
