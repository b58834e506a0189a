// Measures intervals with the library's microsecond clock. The clock wraps about every 71 minutes,
// and a longer interval is reported that much too short.
#ifndef CELLHOST_HOST_STOPWATCH_H
#define CELLHOST_HOST_STOPWATCH_H

#include <stdint.h>

#include "host/complain.h"
#include "kivsdu/time.h"

namespace cellhost {

class Stopwatch {
 public:
  Stopwatch() : start_(Now()) {}
  void Restart() { start_ = Now(); }

  // Unsigned subtraction is correct across one wrap.
  uint32_t elapsedUs() const { return Now() - start_; }

 private:
  static uint32_t Now() {
    uint32_t microseconds = 0;
    Succeeded(nullptr, KivSdGetFastTimer(nullptr, &microseconds), "read the fast timer");
    return microseconds;
  }

  uint32_t start_;
};

}  // namespace cellhost

#endif
