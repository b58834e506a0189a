// The places of the request ring, first in, first out, and the lock that guards them.
//
// The lock is a lightweight spinlock, of the design that the process has (lock_design.h): it is
// held for a few instructions, and its holder takes no other lock and never waits.
#ifndef CELLHOST_SERVER_RING_SLOTS_H
#define CELLHOST_SERVER_RING_SLOTS_H

#include <stdint.h>

#include "kivsdu/spinlock.h"

namespace cellhost {

constexpr uint32_t kConnections = 8;

class Request;

// Any thread.
class RingSlots {
 public:
  RingSlots();
  RingSlots(const RingSlots&) = delete;
  RingSlots& operator=(const RingSlots&) = delete;
  ~RingSlots();

  // Puts a request behind all others; at most kConnections at once.
  void Add(Request* request);

  // Takes the oldest request; null if there is none.
  Request* TakeOldest();

 private:
  KivSdLWSpinlock lock_;  // guards the others
  Request* requests_[kConnections] = {};
  uint32_t first_ = 0;  // index of the oldest
  uint32_t count_ = 0;
};

}  // namespace cellhost

#endif
