#include "os/lnx/counting_semaphore.h"

#include <cerrno>

#include "os/lnx/brief_wait.h"
#include "os/lnx/waits.h"

namespace kiv::os {
namespace {

constexpr uint32_t kStarvingDelayMs = 5;

// A waiting thread, one of the word's users.
class Waiter {
 public:
  Waiter(const SemaphorePlace& semaphore, uint32_t timeoutMs)
      : semaphore_(semaphore), deadline_(DeadlineAfter(timeoutMs)) {}

  // Waits for a unit. Leaves the semaphore.
  UnitTaken Await() {
    while (true) {
      const uint64_t state = semaphore_.word->load(std::memory_order_relaxed);
      if (!IsStarving(state)) mayTake_ = true;
      if (HasUnits(state) && mayTake_) {
        if (Leave(state, state - 1)) return {kSignalledWait, isLast_};
      } else if (IsPast(deadline_)) {
        if (Leave(state, state)) return {kTimedOutWait, isLast_};
      } else if (woken_ && !HasUnits(state) && !IsStarving(state)) {
        Starve(state);
      } else {
        Rest(state);
      }
    }
  }

 private:
  // relaxed: the mark carries no data. If the state has changed, the caller looks at it again.
  void Starve(uint64_t state) {
    semaphore_.word->compare_exchange_weak(state, state | kStarving, std::memory_order_relaxed);
  }

  // Sleeps once. Units that this thread must leave to a starving one limit the sleep, because that
  // thread may have ended.
  void Rest(uint64_t state) {
    const bool heldBack = HasUnits(state);
    const Deadline limit =
        heldBack ? EarlierOf(deadline_, DeadlineAfter(kStarvingDelayMs)) : deadline_;
    const Sleep sleep = SleepOn(SleepersHalf(semaphore_.word), static_cast<uint32_t>(state), limit,
                                semaphore_.scope);
    if (sleep == Sleep::kWoken) woken_ = true;
    if (sleep == Sleep::kWoken || (sleep == Sleep::kTimedOut && heldBack)) mayTake_ = true;
  }

  // Also takes the starving mark away. Another starving thread sets it again when it is next woken
  // in vain. Memory that another process can write may lack this user.
  bool Leave(uint64_t state, uint64_t next) {
    const uint64_t left = (HasUsers(next) ? next - kOneUser : next) & ~kStarving;
    isLast_ = IsClosedWithoutUsers(left);
    // acquire: pairs with GiveUnits. release: for the thread that ends the object.
    return semaphore_.word->compare_exchange_weak(state, left, std::memory_order_acq_rel,
                                                  std::memory_order_relaxed);
  }

  SemaphorePlace semaphore_;
  Deadline deadline_;
  bool mayTake_ = false;
  bool woken_ = false;
  bool isLast_ = false;
};

// Open, and without a unit for a thread that does not wait. relaxed: the caller looks again.
bool IsEmpty(const SemaphorePlace& semaphore) {
  const uint64_t state = semaphore.word->load(std::memory_order_relaxed);
  return IsOpen(state, semaphore.identity) && !HasUnits(state);
}

// A test without a wait respects the mark only where a dead process cannot have left it.
bool MustQueue(uint64_t state, Scope scope, uint32_t timeoutMs) {
  return !HasUnits(state) || (IsStarving(state) && (scope == Scope::kProcess || timeoutMs != 0));
}

}  // namespace

bool AreValidCounts(int32_t initialCount, int32_t maximumCount) {
  return maximumCount > 0 && initialCount >= 0 && initialCount <= maximumCount;
}

UnitTaken TakeUnitSlowly(const SemaphorePlace& semaphore, uint32_t timeoutMs) {
  if (timeoutMs != 0) LookBriefly([&] { return !IsEmpty(semaphore); });
  uint64_t state = semaphore.word->load(std::memory_order_relaxed);
  while (IsOpen(state, semaphore.identity)) {
    const bool queues = MustQueue(state, semaphore.scope, timeoutMs);
    if (queues && timeoutMs == 0) return {kTimedOutWait, false};
    if (queues && IsFullOfUsers(state)) return {FailedWait(EAGAIN), false};
    // acquire: pairs with GiveUnits.
    if (!semaphore.word->compare_exchange_weak(state, queues ? state + kOneUser : state - 1,
                                               std::memory_order_acquire,
                                               std::memory_order_relaxed)) {
      continue;
    }
    return queues ? Waiter(semaphore, timeoutMs).Await() : UnitTaken{kSignalledWait, false};
  }
  return {FailedWait(EBADF), false};
}

// The object may be gone by now: then this wakes nobody, or a thread that sleeps again.
void WakeTakers(const SemaphorePlace& semaphore, int32_t count) {
  WakeSleepers(SleepersHalf(semaphore.word),
               semaphore.scope == Scope::kProcess ? count : kAllSleepers, semaphore.scope);
}

}  // namespace kiv::os
