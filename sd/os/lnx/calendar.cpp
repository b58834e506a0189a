#include "os/calendar.h"

#include <cerrno>
#include <ctime>

namespace kiv::os {
namespace {

uint32_t RuntimeError() { return static_cast<uint32_t>(errno); }

ValueResult<const char*> FromText(const char* text) {
  if (text != nullptr) return {true, 0, text};
  return {false, RuntimeError(), nullptr};
}

// The text that TimeText and LocalTimeText return to this thread. The runtime fails rather than
// write more than these bytes.
constexpr size_t kTextBytes = 26;
thread_local char threadText[kTextBytes];

}  // namespace

ValueResult<uint32_t> ProcessClock() {
  const clock_t ticks = clock();
  if (ticks == static_cast<clock_t>(-1)) return {false, RuntimeError(), 0};
  return {true, 0, static_cast<uint32_t>(ticks)};
}

int64_t WallClockSeconds() { return time(nullptr); }

WallClock WallClockMs() {
  timespec now = {};
  clock_gettime(CLOCK_REALTIME, &now);
  return {now.tv_sec, static_cast<uint16_t>(now.tv_nsec / 1000000)};
}

ValueResult<tm> LocalTime(int64_t seconds) {
  const time_t time = seconds;
  tm broken = {};
  if (localtime_r(&time, &broken) == nullptr) return {false, RuntimeError(), {}};
  return {true, 0, broken};
}

ValueResult<const char*> TimeText(const tm& time) { return FromText(asctime_r(&time, threadText)); }

ValueResult<const char*> LocalTimeText(int64_t seconds) {
  const ValueResult<tm> time = LocalTime(seconds);
  if (!time.ok) return {false, time.error, nullptr};
  return TimeText(time.value);
}

}  // namespace kiv::os
