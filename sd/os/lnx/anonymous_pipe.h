// Anonymous pipes, for the primitives that serve both kinds of pipes.
#ifndef KIV_OS_LNX_ANONYMOUS_PIPE_H
#define KIV_OS_LNX_ANONYMOUS_PIPE_H

#include "os/named_pipes.h"

namespace kiv::os {

ValueResult<PipeContent> PeekAnonymousPipe(int descriptor, void* buffer, uint32_t sizeBytes);

}  // namespace kiv::os

#endif
