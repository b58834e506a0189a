// Busy waiting, for all locks.
#ifndef KIV_SDSYNC_SPIN_H
#define KIV_SDSYNC_SPIN_H

#include "os/thread.h"
#include "sdsync/tuning.h"

namespace kiv {

// Pauses and tests the condition, at most limit() times but at least `leastRounds` times. Returns
// whether the condition came true. Each round calls limit() anew; the calibration measures that
// cost too.
template <typename Limit, typename Condition>
bool SpinWithin(Limit limit, Condition holds, int32_t leastRounds = 0) {
  for (int32_t round = 0; round < leastRounds || round < limit(); ++round) {
    os::PauseProcessor();
    if (holds()) return true;
  }
  return false;
}

template <typename Condition>
bool SpinWithinBudget(Condition holds, int32_t leastRounds = 0) {
  return SpinWithin(SpinBudget, holds, leastRounds);
}

// Spins without a limit and never yields.
template <typename Condition>
void SpinUntil(Condition holds) {
  while (!holds()) os::PauseProcessor();
}

// Spins and yields alternately until the condition holds. Never sleeps in the kernel: the awaited
// thread is about to finish.
template <typename Condition>
void SpinAndYieldUntil(Condition holds) {
  while (!holds()) {
    if (SpinWithinBudget(holds)) return;
    os::YieldThread();
  }
}

// Like SpinAndYieldUntil, but pauses before every test of the condition, and spins at least one
// round before each yield even on a budget of 0.
template <typename Condition>
void SpinOnceAndYieldUntil(Condition holds) {
  while (!SpinWithinBudget(holds, 1)) os::YieldThread();
}

// One attempt at a test-and-set lock, whose header or source defines IsFree and Take: spins within
// the budget while the lock is held, then takes it if it is free. Static, so that the compiler
// inlines it like the source's own functions.
template <typename Lock>
static bool TryTake(Lock* lock) {
  if (!IsFree(*lock)) SpinWithinBudget([lock] { return IsFree(*lock); });
  return IsFree(*lock) && Take(lock);
}

}  // namespace kiv

#endif
