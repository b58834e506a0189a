// Nice values that stand for Windows' priority classes of processes and priorities of threads.
//
// Linux ranks single threads. A process's class is the nice value of its threads; a thread's
// priority is an offset from it.
#ifndef KIV_OS_LNX_NICE_H
#define KIV_OS_LNX_NICE_H

#include <sys/types.h>

#include "os/os.h"

namespace kiv::os {

// Sets the nice value of a thread of this process. Fails silently without the right to it.
void ApplyThreadPriority(uint32_t threadId, int32_t priority);

}  // namespace kiv::os

#endif
