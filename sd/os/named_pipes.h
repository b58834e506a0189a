// Named pipes.
#ifndef KIV_OS_NAMED_PIPES_H
#define KIV_OS_NAMED_PIPES_H

#include "os/os.h"

namespace kiv::os {

// OS error of a client that came before the server waited.
extern const uint32_t kErrorPipeConnected;

// What a pipe is opened with in overlapped mode.
extern const uint32_t kPipeOverlapped;

// Bytes of an access list; the storage is aligned for any type.
constexpr uint32_t kAccessListBytes = 40;

struct NamedPipeShape {
  uint32_t openMode;
  uint32_t pipeMode;
  uint32_t maximumInstances;
  uint32_t outBytes;
  uint32_t inBytes;
  uint32_t defaultTimeoutMs;
};

// What lies in a pipe; counts of bytes.
struct PipeContent {
  uint32_t read;
  uint32_t available;
  uint32_t left;  // of the message that was read
};

// An access list that admits everybody, in two steps.
Result PrepareAccessList(void* storage);
Result OpenAccessListToAll(void* storage);

// On failure the value is the platform's invalid handle, not null. An inheritable handle.
ValueResult<void*> MakeNamedPipe(const char* path, const NamedPipeShape& shape, void* accessList);
ValueResult<void*> OpenPipeFile(const char* path, uint32_t access, uint32_t shareMode,
                                uint32_t disposition, uint32_t flags);
Result WaitForNamedPipe(const char* path, uint32_t timeoutMs);
Result ConnectPipe(void* pipe);
Result DisconnectPipe(void* pipe);

// `buffer` may be null.
ValueResult<PipeContent> PeekPipe(void* pipe, void* buffer, uint32_t sizeBytes);

}  // namespace kiv::os

#endif
