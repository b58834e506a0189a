#include "os/lnx/futex.h"

#include <linux/futex.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>

#include "os/kernel_objects.h"

namespace kiv::os {
namespace {

constexpr long kNanosecondsPerMs = 1'000'000;
constexpr long kNanosecondsPerSecond = 1'000'000'000;

int FlagsOf(Scope scope) { return scope == Scope::kProcess ? FUTEX_PRIVATE_FLAG : 0; }

timespec Now() {
  timespec now = {};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return now;
}

Deadline NowPlus(time_t seconds, long nanoseconds) {
  timespec time = Now();
  time.tv_sec += seconds;
  time.tv_nsec += nanoseconds;
  while (time.tv_nsec >= kNanosecondsPerSecond) {
    time.tv_nsec -= kNanosecondsPerSecond;
    ++time.tv_sec;
  }
  return {time, false};
}

bool IsBefore(const timespec& one, const timespec& other) {
  return one.tv_sec != other.tv_sec ? one.tv_sec < other.tv_sec : one.tv_nsec < other.tv_nsec;
}

}  // namespace

Deadline DeadlineAfter(uint32_t timeoutMs) {
  if (timeoutMs == kWaitForEver) return {{}, true};
  return NowPlus(static_cast<time_t>(timeoutMs / 1000),
                 static_cast<long>(timeoutMs % 1000) * kNanosecondsPerMs);
}

Deadline DeadlineAfterNs(uint32_t nanoseconds) {
  return NowPlus(0, static_cast<long>(nanoseconds));
}

bool IsPast(const Deadline& deadline) { return !deadline.never && !IsBefore(Now(), deadline.time); }

timespec TimeLeft(const Deadline& deadline) {
  const timespec now = Now();
  if (!IsBefore(now, deadline.time)) return {};
  timespec left = {deadline.time.tv_sec - now.tv_sec, deadline.time.tv_nsec - now.tv_nsec};
  if (left.tv_nsec < 0) {
    left.tv_nsec += kNanosecondsPerSecond;
    --left.tv_sec;
  }
  return left;
}

Deadline EarlierOf(const Deadline& one, const Deadline& other) {
  if (one.never) return other;
  return !other.never && IsBefore(other.time, one.time) ? other : one;
}

Sleep SleepOn(const void* word, uint32_t expected, const Deadline& deadline, Scope scope) {
  const long outcome =
      syscall(SYS_futex, word, FUTEX_WAIT_BITSET | FlagsOf(scope), expected,
              deadline.never ? nullptr : &deadline.time, nullptr, FUTEX_BITSET_MATCH_ANY);
  if (outcome == 0) return Sleep::kWoken;
  return errno == ETIMEDOUT ? Sleep::kTimedOut : Sleep::kNoChange;
}

void WakeSleepers(const void* word, int count, Scope scope) {
  syscall(SYS_futex, word, FUTEX_WAKE | FlagsOf(scope), count, nullptr, nullptr, 0);
}

}  // namespace kiv::os
