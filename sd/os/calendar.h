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

// The runtime's clock(), in units of 1 / CLOCKS_PER_SEC: the time that the process has run (lnx:
// its processor time).
ValueResult<uint32_t> ProcessClock();

int64_t WallClockSeconds();
WallClock WallClockMs();

// Broken-down time in the local time zone.
ValueResult<tm> LocalTime(int64_t seconds);

// The runtime's text of 25 characters, the last of them a newline. The caller does not own the
// text, which is valid until this thread's next call. Fails with null and errno if the time has no
// text.
ValueResult<const char*> TimeText(const tm& time);
ValueResult<const char*> LocalTimeText(int64_t seconds);

}  // namespace kiv::os

#endif
