#include "os/clock.h"

#include <time.h>

#include "os/lnx/posix.h"

namespace kiv::os {
namespace {

constexpr int64_t kNanosecondsPerSecond = 1000000000;

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
  return {result.ok, result.error, now.tv_sec * kNanosecondsPerSecond + now.tv_nsec};
}

ValueResult<int64_t> CounterFrequency() { return {true, 0, kNanosecondsPerSecond}; }

}  // namespace kiv::os
