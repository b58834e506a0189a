#include "os/calendar.h"

#include <sys/timeb.h>

#include <cerrno>
#include <ctime>

namespace kiv::os {
namespace {

uint32_t RuntimeError() { return static_cast<uint32_t>(errno); }

ValueResult<const char*> FromText(const char* text) {
  if (text != nullptr) return {true, 0, text};
  return {false, RuntimeError(), nullptr};
}

}  // namespace

ValueResult<uint32_t> ProcessClock() {
  const clock_t ticks = clock();
  if (ticks == static_cast<clock_t>(-1)) return {false, RuntimeError(), 0};
  return {true, 0, static_cast<uint32_t>(ticks)};
}

int64_t WallClockSeconds() { return _time64(nullptr); }

WallClock WallClockMs() {
  struct __timeb64 now = {};
  _ftime64(&now);
  return {now.time, now.millitm};
}

ValueResult<tm> LocalTime(int64_t seconds) {
  const __time64_t time = seconds;
  const tm* broken = _localtime64(&time);
  if (broken == nullptr) return {false, RuntimeError(), {}};
  return {true, 0, *broken};
}

ValueResult<const char*> TimeText(const tm& time) { return FromText(asctime(&time)); }

ValueResult<const char*> LocalTimeText(int64_t seconds) {
  const __time64_t time = seconds;
  return FromText(_ctime64(&time));
}

}  // namespace kiv::os
