// Delays, which take a thread off its way between any two accesses to what threads share. A trial
// has one of two kinds:
//
//   real      all threads run at once; a delay is a run of pauses, a yield, or a sleep. What the
//             processor and the system do to the order of steps is part of it.
//   in turns  one thread runs at a time, and a delay lets the others go some steps (turns.h). The
//             orders of steps are as wild, many more of them fit into a second, however busy the
//             machine is, and the seed alone decides them.
#ifndef KIV_TESTS_STRESS_DELAY_H
#define KIV_TESTS_STRESS_DELAY_H

#include <cstdint>

namespace kiv::stress {

class Turns;

// How often a thread is delayed, and how: one in so many chances, each a power of two. A run of
// pauses moves two threads against each other by some instructions, a yield lets others go far,
// and a sleep of 1 to 50 us lets them take and leave a lock several times.
struct Pace {
  uint32_t pauseOneIn;
  uint32_t yieldOneIn;
  uint32_t sleepOneIn;
};

// Threads that differ meet in more ways than threads that are alike.
constexpr uint32_t kNever = 0x80000000;
constexpr Pace kPaces[] = {
    {kNever, kNever, kNever}, {256, 4096, 16384}, {8, 256, 4096}, {4, 32, 512}, {2, 8, 32},
};

// From here on the calling thread is delayed; a thread that calls neither is not.
void DelayFor(uint64_t seed, const Pace& pace);
void DelayInTurns(Turns* turns, uint32_t seat);
void EndDelays();

// A chance to be delayed.
void Delay();

// Lets others on, who may be what the thread waits for. False: the thread is not delayed in turns,
// and has to wait in the system's way.
bool LetOthersOn();

// Stays where it is, at times for as long as others need to take and leave a lock.
void Linger();

// One chance before what its scope does, and one after.
class DelayAround {
 public:
  DelayAround() { Delay(); }
  ~DelayAround() { Delay(); }
  DelayAround(const DelayAround&) = delete;
  DelayAround& operator=(const DelayAround&) = delete;
};

}  // namespace kiv::stress

#endif
