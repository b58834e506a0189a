#include "os/calendar.h"

#include <sys/timeb.h>

#include <cerrno>
#include <ctime>

#include "parameter_guard.h"

namespace kiv::os {
namespace {

uint32_t RuntimeError() { return static_cast<uint32_t>(errno); }

// These calls take little more time than a guard. So they have one only if the runtime might refuse
// their argument. It takes the times from 1970 to 3000, and every day of a month but the 29th to
// 31st of some months.
constexpr int64_t kFirstSafeSecond = 86'400;         // 2 January 1970, UTC
constexpr int64_t kLastSafeSecond = 32'503'680'000;  // 1 January 3000, UTC
constexpr int kLastSafeDay = 28;
constexpr int kLastSafeYear = 1000;  // since 1900

bool IsSafe(int64_t seconds) { return seconds >= kFirstSafeSecond && seconds <= kLastSafeSecond; }

bool IsSafe(const tm& time) {
  return time.tm_sec >= 0 && time.tm_sec <= 59 && time.tm_min >= 0 && time.tm_min <= 59 &&
         time.tm_hour >= 0 && time.tm_hour <= 23 && time.tm_mday >= 1 &&
         time.tm_mday <= kLastSafeDay && time.tm_mon >= 0 && time.tm_mon <= 11 &&
         time.tm_year >= 0 && time.tm_year <= kLastSafeYear && time.tm_wday >= 0 &&
         time.tm_wday <= 6;
}

ValueResult<tm> BreakDown(__time64_t time) {
  const tm* broken = _localtime64(&time);
  if (broken == nullptr) return {false, RuntimeError(), {}};
  return {true, 0, *broken};
}

ValueResult<const char*> FromText(const char* text) {
  if (text != nullptr) return {true, 0, text};
  return {false, RuntimeError(), nullptr};
}

ValueResult<const char*> TextOf(const tm& time) { return FromText(asctime(&time)); }

ValueResult<const char*> TextOf(__time64_t time) { return FromText(_ctime64(&time)); }

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
  if (IsSafe(seconds)) return BreakDown(seconds);
  const ParameterGuard guard;
  return BreakDown(seconds);
}

ValueResult<const char*> TimeText(const tm& time) {
  if (IsSafe(time)) return TextOf(time);
  const ParameterGuard guard;
  return TextOf(time);
}

ValueResult<const char*> LocalTimeText(int64_t seconds) {
  if (IsSafe(seconds)) return TextOf(seconds);
  const ParameterGuard guard;
  return TextOf(seconds);
}

}  // namespace kiv::os
