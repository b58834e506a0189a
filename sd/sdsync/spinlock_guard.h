// Holds one of the library's own spinlocks for a scope.
#ifndef KIV_SDSYNC_SPINLOCK_GUARD_H
#define KIV_SDSYNC_SPINLOCK_GUARD_H

#include "os/thread.h"
#include "sdsync/spinlock.h"

namespace kiv {

class SpinlockGuard {
 public:
  explicit SpinlockGuard(KivSdSpinlock* lock) : lock_(lock) {
    AcquireOwnLock(lock_, os::CurrentThreadId());
  }
  ~SpinlockGuard() { ReleaseOwnLock(lock_); }
  SpinlockGuard(const SpinlockGuard&) = delete;
  SpinlockGuard& operator=(const SpinlockGuard&) = delete;

 private:
  KivSdSpinlock* const lock_;
};

}  // namespace kiv

#endif
