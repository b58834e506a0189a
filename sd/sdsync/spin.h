// The busy wait of every lock.
#ifndef KIV_SDSYNC_SPIN_H
#define KIV_SDSYNC_SPIN_H

#include "os/thread.h"
#include "sdsync/tuning.h"

namespace kiv {

// Pauses and looks again, as often as the limit allows, but at least `leastRounds` times. Returns
// whether the condition came true. Each round asks for the limit again, which is part of what the
// calibration measures.
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

// Spins without a yield and without a limit.
template <typename Condition>
void SpinUntil(Condition holds) {
  while (!holds()) os::PauseProcessor();
}

// Spins and yields in turns until it comes true. Never waits in the kernel: the one it waits for
// is about to be done.
template <typename Condition>
void SpinAndYieldUntil(Condition holds) {
  while (!holds()) {
    if (SpinWithinBudget(holds)) return;
    os::YieldThread();
  }
}

// The same, but with a round of spinning first, and before it looks again after a yield, even on a
// budget of 0.
template <typename Condition>
void SpinOnceAndYieldUntil(Condition holds) {
  while (!SpinWithinBudget(holds, 1)) os::YieldThread();
}

}  // namespace kiv

#endif
