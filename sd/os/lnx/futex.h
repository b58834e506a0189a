// Sleeping on a word in memory until another thread changes it and wakes the sleepers. Time limits
// are absolute times of the monotonic clock.
#ifndef KIV_OS_LNX_FUTEX_H
#define KIV_OS_LNX_FUTEX_H

#include <ctime>

#include <climits>
#include <cstdint>

namespace kiv::os {

// Who can use a word: the threads of this process, or all processes that map its memory.
enum class Scope { kProcess, kShared };

struct Deadline {
  timespec time;
  bool never;
};

// A time limit of kWaitForEver never ends.
Deadline DeadlineAfter(uint32_t timeoutMs);
Deadline DeadlineAfterNs(uint32_t nanoseconds);
bool IsPast(const Deadline& deadline);
Deadline EarlierOf(const Deadline& one, const Deadline& other);

// The time until the deadline, 0 if it has passed. Meaningless if it never ends.
timespec TimeLeft(const Deadline& deadline);

enum class Sleep {
  kWoken,     // by WakeSleepers
  kNoChange,  // a signal ended the sleep, or the word had another value: look at it again
  kTimedOut,
};

constexpr int kAllSleepers = INT_MAX;

// Sleeps if the word still has the expected value.
Sleep SleepOn(const void* word, uint32_t expected, const Deadline& deadline, Scope scope);

// Wakes sleepers in the order in which they came.
void WakeSleepers(const void* word, int count, Scope scope);

}  // namespace kiv::os

#endif
