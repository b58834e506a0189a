// The operating system's version and directory, its memory, and the process's user.
#ifndef KIV_OS_MACHINE_H
#define KIV_OS_MACHINE_H

#include "os/os.h"

namespace kiv::os {

// Total and available bytes of one kind of memory.
struct MemoryStatus {
  uint64_t totalBytes;
  uint64_t availableBytes;
};

// OS error of a buffer that is too small for the result.
extern const uint32_t kErrorBufferTooSmall;

// The version word: major number in the lowest byte, minor number in the next, flags above.
uint32_t SystemVersion();

// The system's name, by its version word.
const char* SystemName(uint32_t version);

MemoryStatus PhysicalMemory();
ValueResult<MemoryStatus> PagingMemory();

// Stores the system directory with its terminator. The value is its length without the terminator.
// If the path does not fit, the value is the size that the buffer must have, and the buffer is
// untouched.
ValueResult<uint32_t> SystemDirectory(char* buffer, uint32_t sizeBytes);

// Stores the login name of the process's user, terminated. Fails if it does not fit.
Result LoginName(char* buffer, uint32_t sizeBytes);

}  // namespace kiv::os

#endif
