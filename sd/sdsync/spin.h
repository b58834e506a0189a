// The busy wait of every lock.
#ifndef KIV_SDSYNC_SPIN_H
#define KIV_SDSYNC_SPIN_H

#include "os/thread.h"
#include "sdsync/tuning.h"

namespace kiv {

// Pauses and looks again, as often as the budget allows. Whether it came true. Each round
// compares the round number with the budget afresh, which is what the calibration measures.
template <typename Condition>
bool SpinWithinBudget(Condition holds) {
  for (int32_t round = 0; round < SpinBudget(); ++round) {
    os::PauseProcessor();
    if (holds()) return true;
  }
  return false;
}

// Spins and yields in turns until it comes true. Never waits in the kernel: the one it waits for
// is about to be done.
template <typename Condition>
void SpinAndYieldUntil(Condition holds) {
  while (!SpinWithinBudget(holds) && !holds()) os::YieldThread();
}

}  // namespace kiv

#endif
