// Replaces the library's header of this name in programs that interrupt operations at their points
// (support/interleaving.h): there is a point before each lock is taken and after it is released.
#ifndef KIV_TESTS_STEPPED_SPINLOCK_GUARD_H
#define KIV_TESTS_STEPPED_SPINLOCK_GUARD_H

#include "os/thread.h"
#include "sdsync/spinlock.h"
#include "support/interleaving.h"

namespace kiv {

// The namespace gives the functions other names than those that the library's own sources compile.
inline namespace stepped {

class SpinlockGuard {
 public:
  explicit SpinlockGuard(KivSdSpinlock* lock) : lock_(lock) {
    test::Point();
    while (test::IsHeldByOther(lock_)) test::Blocked();
    test::NoteTaken(lock_);
    KivSdSpinlockAcquire(lock_, os::CurrentThreadId());
  }
  ~SpinlockGuard() {
    KivSdSpinlockRelease(lock_);
    test::NoteReleased(lock_);
    test::Point();
  }
  SpinlockGuard(const SpinlockGuard&) = delete;
  SpinlockGuard& operator=(const SpinlockGuard&) = delete;

 private:
  KivSdSpinlock* const lock_;
};

}  // namespace stepped
}  // namespace kiv

#endif
