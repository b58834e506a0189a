// Waiting for what nothing signals: look, pause, look again, until a time limit has passed.
#ifndef CELLHOST_HOST_WAITING_H
#define CELLHOST_HOST_WAITING_H

#include <stdint.h>

#include "host/stopwatch.h"

namespace cellhost {

// A time limit that runs from its making; below an hour, as the stopwatch wraps.
class TimeLimit {
 public:
  explicit TimeLimit(uint32_t limitMs) : limitMs_(limitMs) {}
  bool passed() const { return watch_.elapsedUs() / kUsPerMs >= limitMs_; }

 private:
  static constexpr uint32_t kUsPerMs = 1000;

  Stopwatch watch_;
  uint32_t limitMs_;
};

// The pauses between looks: at first only the time slice is given up, as an answer is often there
// within microseconds; later the thread sleeps a millisecond each time.
class Pause {
 public:
  void Take();

 private:
  uint32_t taken_ = 0;
};

}  // namespace cellhost

#endif
