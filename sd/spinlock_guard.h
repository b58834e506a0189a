// Holds a spinlock for a scope.
#ifndef KIV_SPINLOCK_GUARD_H
#define KIV_SPINLOCK_GUARD_H

#include "kivsdu/spinlock.h"
#include "os/thread.h"

namespace kiv {

class SpinlockGuard {
 public:
  explicit SpinlockGuard(KivSdSpinlock* lock) : lock_(lock) {
    KivSdSpinlockAcquire(lock_, os::CurrentThreadId());
  }
  ~SpinlockGuard() { KivSdSpinlockRelease(lock_); }
  SpinlockGuard(const SpinlockGuard&) = delete;
  SpinlockGuard& operator=(const SpinlockGuard&) = delete;

 private:
  KivSdSpinlock* const lock_;
};

}  // namespace kiv

#endif
