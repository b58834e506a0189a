// Time and clocks: checks and statuses around calls of the runtime and the system.
#include "kivsdu/time.h"

#include <atomic>
#include <cctype>
#include <cerrno>
#include <cstring>
#include <ctime>

#include "kivsdu/memory.h"
#include "os/calendar.h"
#include "os/clock.h"
#include "os/thread.h"
#include "report.h"
#include "text.h"

using namespace kiv;

namespace {

constexpr uint32_t kMillisecondsPerSecond = 1000;
constexpr uint32_t kMicrosecondsPerMillisecond = 1000;
constexpr uint64_t kMicrosecondsPerSecond = 1000000;

// Ticks per second of the performance counter; 0 until first read. relaxed: the system never
// changes the frequency, and racing threads store the same value.
std::atomic<int64_t> counterFrequency{0};

// Whether the record's values fit the runtime's name tables and its 26-byte text. Not every version
// of the runtime checks this, so values out of range are refused before the call.
bool CanBeWritten(const KivSdLocalTime& local) {
  return local.weekday <= 6 && local.month <= 11 && local.day <= 99 && local.hour <= 99 &&
         local.minute <= 99 && local.second <= 99 && local.year <= 9999 - 1900;
}

tm BrokenDown(const KivSdLocalTime& local) {
  tm time = {};
  time.tm_sec = local.second;
  time.tm_min = local.minute;
  time.tm_hour = local.hour;
  time.tm_mday = local.day;
  time.tm_mon = local.month;
  time.tm_year = local.year;
  time.tm_wday = local.weekday;
  return time;
}

os::ValueResult<const char*> TextOf(const KivSdLocalTime& local) {
  if (!CanBeWritten(local)) return {false, EINVAL, nullptr};
  return os::TimeText(BrokenDown(local));
}

// Replaces white space at the end by terminators. Keeps the first character in any case.
void TrimEnd(char* text, size_t length) {
  for (size_t i = length; i > 1 && std::isspace(static_cast<unsigned char>(text[i - 1])); --i) {
    text[i - 1] = '\0';
  }
}

int64_t FrequencyOnce() {
  const int64_t known = counterFrequency.load(std::memory_order_relaxed);
  if (known != 0) return known;
  const os::ValueResult<int64_t> asked = os::CounterFrequency();
  if (!asked.ok) return 0;
  counterFrequency.store(asked.value, std::memory_order_relaxed);
  return asked.value;
}

}  // namespace

void KivSdSleep(KivSdContext* ctx, uint32_t timeMs) {
  os::SleepMs(timeMs);
  Report(ctx, KIV_ST_OK);
}

uint32_t KivSdClock(KivSdContext* ctx, uint32_t* ticks) {
  if (ticks == nullptr) return Report(ctx, KIV_ST_ARGUMENT);
  const os::ValueResult<uint32_t> clock = os::ProcessClock();
  if (!clock.ok) return Report(ctx, KIV_ST_CLOCK, clock.error);
  *ticks = clock.value;
  return Report(ctx, KIV_ST_OK);
}

uint32_t KivSdTime(KivSdContext* ctx, uint64_t* seconds) {
  if (seconds == nullptr) return Report(ctx, KIV_ST_ARGUMENT);
  *seconds = static_cast<uint64_t>(os::WallClockSeconds());
  return Report(ctx, KIV_ST_OK);
}

uint32_t KivSdTimeElapsedOS(KivSdContext* ctx, uint64_t* seconds) {
  if (seconds == nullptr) return Report(ctx, KIV_ST_ARGUMENT);
  *seconds = os::TickCountMs() / kMillisecondsPerSecond;
  return Report(ctx, KIV_ST_OK);
}

uint32_t KivSdLocalTimeGet(KivSdContext* ctx, int64_t seconds, KivSdLocalTime* local) {
  if (local == nullptr) return Report(ctx, KIV_ST_ARGUMENT);
  std::memset(local, 0, sizeof *local);
  local->time = static_cast<uint32_t>(seconds);

  const os::ValueResult<tm> time = os::LocalTime(seconds);
  if (!time.ok) return Report(ctx, KIV_ST_LOCAL_TIME, time.error);
  local->second = static_cast<uint16_t>(time.value.tm_sec);
  local->minute = static_cast<uint16_t>(time.value.tm_min);
  local->hour = static_cast<uint16_t>(time.value.tm_hour);
  local->day = static_cast<uint16_t>(time.value.tm_mday);
  local->month = static_cast<uint16_t>(time.value.tm_mon);
  local->year = static_cast<uint16_t>(time.value.tm_year);
  local->weekday = static_cast<uint16_t>(time.value.tm_wday);
  return Report(ctx, KIV_ST_OK);
}

uint32_t KivSdTimeStrGet(KivSdContext* ctx, const KivSdLocalTime* local, uint32_t length,
                         char* text) {
  if (local == nullptr || text == nullptr || length == 0) return Report(ctx, KIV_ST_ARGUMENT);
  std::memset(text, 0, length);
  // Compatibility: time 0 marks an empty record and yields an empty text, not the start of 1970.
  if (local->time == 0) return Report(ctx, KIV_ST_OK);

  const os::ValueResult<const char*> made = TextOf(*local);
  if (!made.ok) return Report(ctx, KIV_ST_TIME_STRING, made.error);
  TrimEnd(text, CopyText(text, length - 1, made.value));
  return Report(ctx, KIV_ST_OK);
}

uint32_t KivSdCTime(KivSdContext* ctx, int64_t seconds, uint32_t length, char* text) {
  if (text == nullptr || length == 0) return Report(ctx, KIV_ST_ARGUMENT);
  std::memset(text, 0, length);
  const os::ValueResult<const char*> made = os::LocalTimeText(seconds);
  if (!made.ok) return Report(ctx, KIV_ST_TIME_FORMAT, made.error);
  CopyText(text, length - 1, made.value);
  return Report(ctx, KIV_ST_OK);
}

uint32_t KivSdGetUtcTimestamp(KivSdContext* ctx, uint64_t /*ignored*/, KivSdUtcTimestamp* stamp) {
  if (stamp == nullptr) return Report(ctx, KIV_ST_ARGUMENT);
  const os::WallClock now = os::WallClockMs();
  stamp->seconds = static_cast<uint32_t>(now.seconds);
  stamp->microseconds = now.milliseconds * kMicrosecondsPerMillisecond;
  return Report(ctx, KIV_ST_OK);
}

uint32_t KivSdGetFastTimer(const void* /*ignored*/, uint32_t* microseconds) {
  if (microseconds == nullptr) return KIV_ST_ARGUMENT;
  const int64_t frequency = FrequencyOnce();
  if (frequency == 0) return KIV_ST_FAST_TIMER;
  const os::ValueResult<int64_t> counter = os::Counter();
  if (!counter.ok) return KIV_ST_FAST_TIMER;

  // Compatibility: the product wraps at 64 bits and the division is signed. Callers subtract two
  // close readings, and expect this result also after the product has wrapped.
  const uint64_t product = static_cast<uint64_t>(counter.value) * kMicrosecondsPerSecond;
  *microseconds = static_cast<uint32_t>(static_cast<int64_t>(product) / frequency);
  return KIV_ST_OK;
}
