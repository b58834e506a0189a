// Places under a lightweight spinlock; see ring_slots.h.
#include "server/ring_slots.h"

namespace cellhost {
namespace {

class Guard {
 public:
  explicit Guard(KivSdLWSpinlock* lock) : lock_(lock) { KivSdLWSpinlockAcquire(lock_); }
  Guard(const Guard&) = delete;
  Guard& operator=(const Guard&) = delete;
  ~Guard() { KivSdLWSpinlockRelease(lock_); }

 private:
  KivSdLWSpinlock* lock_;
};

}  // namespace

RingSlots::RingSlots() { KivSdLWSpinlockInit(&lock_); }

RingSlots::~RingSlots() { KivSdLWSpinlockDestroy(&lock_); }

void RingSlots::Add(Request* request) {
  const Guard guard(&lock_);
  requests_[(first_ + count_) % kConnections] = request;
  ++count_;
}

Request* RingSlots::TakeOldest() {
  const Guard guard(&lock_);
  if (count_ == 0) return nullptr;
  Request* request = requests_[first_];
  first_ = (first_ + 1) % kConnections;
  --count_;
  return request;
}

}  // namespace cellhost
