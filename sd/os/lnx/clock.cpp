#include "os/clock.h"

#include <time.h>

#include "os/lnx/posix.h"

namespace kiv::os {
namespace {

// Callers multiply the count by 1000000 in 64 bits. With nanoseconds the product would wrap every
// few hours, with microseconds it wraps after 213 days.
constexpr int64_t kTicksPerSecond = 1000000;
constexpr int64_t kNanosecondsPerTick = 1000;

}  // namespace

uint32_t TickCountMs() {
  timespec now = {};
  clock_gettime(CLOCK_BOOTTIME, &now);
  return static_cast<uint32_t>(static_cast<uint64_t>(now.tv_sec) * 1000 +
                               static_cast<uint64_t>(now.tv_nsec) / 1000000);
}

ValueResult<int64_t> Counter() {
  timespec now = {};
  const Result result = FromErrno(clock_gettime(CLOCK_MONOTONIC, &now));
  return {result.ok, result.error,
          now.tv_sec * kTicksPerSecond + now.tv_nsec / kNanosecondsPerTick};
}

ValueResult<int64_t> CounterFrequency() { return {true, 0, kTicksPerSecond}; }

}  // namespace kiv::os
