// Anonymous pipes.
#ifndef KIV_OS_PIPES_H
#define KIV_OS_PIPES_H

#include "os/os.h"

namespace kiv::os {

// OS error of a pipe whose other end is being closed.
extern const uint32_t kErrorPipeClosing;

struct PipeEnds {
  void* read;
  void* write;
};

// Both ends are null when no pipe was made.
ValueResult<PipeEnds> MakePipe(uint32_t bufferBytes);
Result ClosePipe(void* pipe);

// The value is the count of bytes, also on failure.
ValueResult<uint32_t> ReadPipe(void* pipe, void* buffer, uint32_t length);
ValueResult<uint32_t> WritePipe(void* pipe, const void* buffer, uint32_t length);

}  // namespace kiv::os

#endif
