// Polling, for conditions that no event signals: check, pause, check again, up to a time limit.
#ifndef CELLHOST_HOST_WAITING_H
#define CELLHOST_HOST_WAITING_H

#include <stdint.h>

#include "host/stopwatch.h"

namespace cellhost {

// A time limit that starts with its construction. Below an hour, because the stopwatch wraps.
class TimeLimit {
 public:
  explicit TimeLimit(uint32_t limitMs) : limitMs_(limitMs) {}
  bool passed() const { return watch_.elapsedUs() / kUsPerMs >= limitMs_; }

 private:
  static constexpr uint32_t kUsPerMs = 1000;

  Stopwatch watch_;
  uint32_t limitMs_;
};

// The pauses between checks. The first pauses only yield the time slice, because an answer often
// arrives within microseconds; later pauses sleep a millisecond each.
class Pause {
 public:
  void Take();

 private:
  uint32_t taken_ = 0;
};

}  // namespace cellhost

#endif
