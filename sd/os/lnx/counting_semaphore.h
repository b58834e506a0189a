// A counting semaphore in one word, in a slot of the handle table or in memory that processes share.
//
//   low half of the object's word:   bit 31     30 .. 0
//                                    starving   count
//
// Its users are the waiting threads. A give adds to the count and wakes waiters; any thread may then
// take a unit, also one that never waited. A waiter that was woken but found no unit sets the
// starving mark. The mark holds back the threads that come later until a waiter has taken a unit.
//
// In shared memory a process can be killed at any moment. Two rules make that harmless there: a give
// wakes all waiters, because the only one that it woke might die without taking the unit, and the
// starving mark delays a thread by at most kStarvingDelayMs.
#ifndef KIV_OS_LNX_COUNTING_SEMAPHORE_H
#define KIV_OS_LNX_COUNTING_SEMAPHORE_H

#include <cerrno>

#include "os/kernel_objects.h"
#include "os/lnx/futex.h"
#include "os/lnx/object_word.h"

namespace kiv::os {

struct SemaphorePlace {
  ObjectWord* word;
  uint64_t identity;
  Scope scope;
};

struct UnitTaken {
  Wait wait;
  bool last;  // the object is closed and this was its last user: the caller ends it
};

constexpr uint64_t kCountMask = 0x7FFFFFFF;
constexpr uint64_t kStarving = 0x80000000;

inline int32_t CountOf(uint64_t state) { return static_cast<int32_t>(state & kCountMask); }
inline bool HasUnits(uint64_t state) { return (state & kCountMask) != 0; }
inline bool IsStarving(uint64_t state) { return (state & kStarving) != 0; }

bool AreValidCounts(int32_t initialCount, int32_t maximumCount);

// The whole wait.
UnitTaken TakeUnitSlowly(const SemaphorePlace& semaphore, uint32_t timeoutMs);

void WakeTakers(const SemaphorePlace& semaphore, int32_t count);

// The path without a wait is inline.
inline UnitTaken TakeUnit(const SemaphorePlace& semaphore, uint32_t timeoutMs) {
  uint64_t state = semaphore.word->load(std::memory_order_relaxed);
  while (IsOpen(state, semaphore.identity) && HasUnits(state) && !IsStarving(state)) {
    // acquire: pairs with GiveUnits.
    if (semaphore.word->compare_exchange_weak(state, state - 1, std::memory_order_acquire,
                                              std::memory_order_relaxed)) {
      return {{kWaitSignalled, 0}, false};
    }
  }
  return TakeUnitSlowly(semaphore, timeoutMs);
}

// `previousCount` is written only on success.
inline Result GiveUnits(const SemaphorePlace& semaphore, int32_t count, int32_t maximum,
                        int32_t* previousCount) {
  if (count <= 0) return {false, EINVAL};
  uint64_t state = semaphore.word->load(std::memory_order_relaxed);
  while (IsOpen(state, semaphore.identity)) {
    if (CountOf(state) > maximum - count) return {false, kErrorTooManyPosts};
    // release: pairs with TakeUnit; what the giver wrote is visible to the taker.
    if (!semaphore.word->compare_exchange_weak(state, state + static_cast<uint32_t>(count),
                                               std::memory_order_release,
                                               std::memory_order_relaxed)) {
      continue;
    }
    if (previousCount != nullptr) *previousCount = CountOf(state);
    if (HasUsers(state)) WakeTakers(semaphore, count);
    return {true, 0};
  }
  return {false, EBADF};
}

}  // namespace kiv::os

#endif
