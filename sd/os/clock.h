// Time since the system started, and the performance counter.
#ifndef KIV_OS_CLOCK_H
#define KIV_OS_CLOCK_H

#include "os/os.h"

namespace kiv::os {

// Milliseconds since the system started, modulo 2^32.
uint32_t TickCountMs();

// A monotonic counter with a resolution of at least a microsecond, and its ticks per second. The
// frequency is constant while the system runs.
ValueResult<int64_t> Counter();
ValueResult<int64_t> CounterFrequency();

}  // namespace kiv::os

#endif
