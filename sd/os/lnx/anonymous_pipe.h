// Anonymous pipes, for the primitives that serve both kinds of pipes.
#ifndef KIV_OS_LNX_ANONYMOUS_PIPE_H
#define KIV_OS_LNX_ANONYMOUS_PIPE_H

#include <atomic>

#include "os/named_pipes.h"

namespace kiv::os {

// Whether the kernel can write to a pipe without raising SIGPIPE, as far as is known. Tests clear it.
extern std::atomic<bool> kernelHasNoSignal;

ValueResult<PipeContent> PeekAnonymousPipe(int descriptor, void* buffer, uint32_t sizeBytes);

}  // namespace kiv::os

#endif
