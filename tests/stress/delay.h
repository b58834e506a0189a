// Delays of a thread between any two accesses to shared variables. A trial uses one of two kinds:
//
//   real      All threads run at once. A delay is a run of pauses, a yield or a sleep. The order of
//             steps also depends on the processor and the system.
//   in turns  One thread runs at a time, and a delay lets other threads take some steps (turns.h).
//             Many more orders of steps fit into a second, even on a busy machine, and only the
//             seed decides them.
#ifndef KIV_TESTS_STRESS_DELAY_H
#define KIV_TESTS_STRESS_DELAY_H

#include <cstdint>

namespace kiv::stress {

class Turns;

// How often a thread is delayed: once in so many chances, each a power of two. A run of pauses
// shifts two threads against each other by some instructions. A yield lets other threads run
// further. A sleep of 1 to 50 us lets them take and release a lock several times.
struct Pace {
  uint32_t pauseOneIn;
  uint32_t yieldOneIn;
  uint32_t sleepOneIn;
};

// Threads of different paces produce more orders of steps than threads of one pace.
constexpr uint32_t kNever = 0x80000000;
constexpr Pace kPaces[] = {
    {kNever, kNever, kNever}, {256, 4096, 16384}, {8, 256, 4096}, {4, 32, 512}, {2, 8, 32},
};

// Start delaying the calling thread, in the real kind or in turns, until EndDelays. Other threads
// are not delayed.
void DelayFor(uint64_t seed, const Pace& pace);
void DelayInTurns(Turns* turns, uint32_t seat);
void EndDelays();

// One chance of a delay.
void Delay();

// Lets other threads run, for a thread that waits for one of them. Returns false if the thread is
// not delayed in turns; it must then wait in the system.
bool LetOthersOn();

// Delays the thread, sometimes for as long as other threads need to take and release a lock.
void Linger();

// One chance of a delay at the beginning of a scope, and one at its end.
class DelayAround {
 public:
  DelayAround() { Delay(); }
  ~DelayAround() { Delay(); }
  DelayAround(const DelayAround&) = delete;
  DelayAround& operator=(const DelayAround&) = delete;
};

}  // namespace kiv::stress

#endif
