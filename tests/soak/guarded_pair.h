// Two words that a lock guards: they are equal whenever nobody holds the lock for writing.
#ifndef KIV_TESTS_SOAK_GUARDED_PAIR_H
#define KIV_TESTS_SOAK_GUARDED_PAIR_H

#include <cstdint>
#include <thread>

#include "soak/check.h"

namespace kiv::soak {

struct GuardedPair {
  static constexpr uint64_t kWritesPerPause = 16;

  volatile uint64_t first = 0;
  volatile uint64_t second = 0;

  void Read() const { Expect(first == second, "a lock keeps writers out of what it guards"); }

  void Write() {
    Read();
    first = first + 1;
    // Others run into the lock while it is held.
    if (first % kWritesPerPause == 0) std::this_thread::yield();
    second = second + 1;
    Read();
  }
};

}  // namespace kiv::soak

#endif
