// The C runtime's clock and calendar. Errors are errno.
#ifndef KIV_OS_CALENDAR_H
#define KIV_OS_CALENDAR_H

#include <ctime>

#include "os/os.h"

namespace kiv::os {

struct WallClock {
  int64_t seconds;  // since 1970, UTC
  uint16_t milliseconds;
};

// The time the process has run, in CLOCKS_PER_SEC.
ValueResult<uint32_t> ProcessClock();

int64_t WallClockSeconds();
WallClock WallClockMs();

// The local time zone's broken-down time.
ValueResult<tm> LocalTime(int64_t seconds);

// The runtime's 25-character text and newline. It lies in storage of the runtime's own until
// this thread's next call; null and errno when the time cannot be written.
ValueResult<const char*> TimeText(const tm& time);
ValueResult<const char*> LocalTimeText(int64_t seconds);

}  // namespace kiv::os

#endif
