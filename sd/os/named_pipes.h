// Named pipes.
#ifndef KIV_OS_NAMED_PIPES_H
#define KIV_OS_NAMED_PIPES_H

#include "os/os.h"

namespace kiv::os {

// OS error of ConnectPipe if the client connected before the call.
extern const uint32_t kErrorPipeConnected;

// Flag that opens a pipe in overlapped mode.
extern const uint32_t kPipeOverlapped;

// Size of an access list's storage, which must be aligned for any type.
constexpr uint32_t kAccessListBytes = 40;

struct NamedPipeShape {
  uint32_t openMode;
  uint32_t pipeMode;
  uint32_t maximumInstances;
  uint32_t outBytes;
  uint32_t inBytes;
  uint32_t defaultTimeoutMs;
};

// The contents of a pipe; counts of bytes.
struct PipeContent {
  uint32_t read;
  uint32_t available;
  uint32_t left;  // rest of the message that was read
};

// Both, in this order, make an access list that admits everybody.
Result PrepareAccessList(void* storage);
Result OpenAccessListToAll(void* storage);

// On failure the value is the platform's invalid handle, not null. Child processes inherit the
// handle that MakeNamedPipe returns.
ValueResult<void*> MakeNamedPipe(const char* path, const NamedPipeShape& shape, void* accessList);
ValueResult<void*> OpenPipeFile(const char* path, uint32_t access, uint32_t shareMode,
                                uint32_t disposition, uint32_t flags);
Result WaitForNamedPipe(const char* path, uint32_t timeoutMs);
Result ConnectPipe(void* pipe);
Result DisconnectPipe(void* pipe);

// Reads without removing. `buffer` may be null.
ValueResult<PipeContent> PeekPipe(void* pipe, void* buffer, uint32_t sizeBytes);

}  // namespace kiv::os

#endif
