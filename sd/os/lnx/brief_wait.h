// Looking at an object for a moment before sleeping on it.
//
// A sleeping thread comes back several microseconds after it is woken, because its processor sleeps
// too. If the awaited thread is at work on another processor, looking is quicker. A thread looks for
// about as long as a sleep and a wake-up take. A wait then costs at most twice what it would cost a
// thread that knew beforehand which of the two is better. Published: Karlin, Manasse, McGeoch,
// Owicki, "Competitive randomized algorithms for nonuniform problems", 1990.
#ifndef KIV_OS_LNX_BRIEF_WAIT_H
#define KIV_OS_LNX_BRIEF_WAIT_H

#include "os/lnx/futex.h"
#include "os/thread.h"

namespace kiv::os {

constexpr uint32_t kBriefWaitNs = 10'000;

// Whether the calling thread should look before it sleeps. Not if the process has one processor,
// where the awaited thread cannot run meanwhile, and rarely if this thread has lately looked in vain:
// its partner then shares its processor with it or takes longer.
bool ShouldLook();

// Tells whether a look was worth it.
void LearnFromLook(bool held);

// Looks until the condition holds, for kBriefWaitNs at most.
template <typename Condition>
void LookBriefly(Condition holds) {
  constexpr int kLooksPerClock = 16;
  if (holds() || !ShouldLook()) return;
  const Deadline end = DeadlineAfterNs(kBriefWaitNs);
  bool held = false;
  do {
    for (int look = 0; look < kLooksPerClock && !held; ++look) {
      PauseProcessor();
      held = holds();
    }
  } while (!held && !IsPast(end));
  LearnFromLook(held);
}

}  // namespace kiv::os

#endif
