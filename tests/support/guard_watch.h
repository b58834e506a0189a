// Failover mode with a lease guard that counts its runs.
#ifndef KIV_TESTS_GUARD_WATCH_H
#define KIV_TESTS_GUARD_WATCH_H

#include <gtest/gtest.h>

#include <cstdint>

#include "kivsdu/settings.h"

namespace kiv::test {

// Turns failover mode on and installs the guard. The destructor undoes both.
class GuardWatch {
 public:
  explicit GuardWatch(uint8_t mode = 1) {
    runs_ = 0;
    KivSdSetLeaseGuardAccessFunction(&GuardWatch::Run);
    KivSdSetFailoverModeFlag(mode);
  }
  ~GuardWatch() {
    KivSdSetFailoverModeFlag(0);
    KivSdSetLeaseGuardAccessFunction(nullptr);
  }
  GuardWatch(const GuardWatch&) = delete;
  GuardWatch& operator=(const GuardWatch&) = delete;

  // Returns the runs of the guard since the last call.
  uint32_t TakeRuns() {
    const uint32_t runs = runs_;
    runs_ = 0;
    return runs;
  }

 private:
  static void Run() { ++runs_; }

  static inline uint32_t runs_ = 0;
};

}  // namespace kiv::test

#endif
