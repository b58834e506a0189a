// Threads that take turns: one thread runs at a time. The seed decides which one runs next, and for
// how long.
#ifndef KIV_TESTS_STRESS_TURNS_H
#define KIV_TESTS_STRESS_TURNS_H

#include <atomic>
#include <cstdint>
#include <deque>

#include "stress/random.h"

namespace kiv::stress {

// Time is counted in steps of all threads. A delayed thread sleeps for some steps, and the turn
// goes to a thread that is awake. A thread may be delayed at any step; at some places in the code,
// its slow places, it is delayed every other time. This finds mistakes that need three or four long
// delays, each at its own place and none in between.
//
// A sanitizer sees no order in a handover of the turn: the atomics are relaxed and the waits are
// direct system calls. The lock alone orders the data that it guards.
class Turns {
 public:
  Turns(uint64_t seed, uint32_t seats);
  Turns(const Turns&) = delete;
  Turns& operator=(const Turns&) = delete;

  // Takes a seat; returns when all seats are taken and it is this seat's turn.
  void Join(uint32_t seat);

  // The following are called only by the thread whose turn it is.

  // Gives up the seat.
  void Leave(uint32_t seat);

  // Draws a new delay frequency and new slow places.
  void ChangePace(uint32_t seat);

  // Takes a step at a place in the code. A delay follows some steps.
  void Step(uint32_t seat, const void* place);

  // Takes a step; a delay follows often.
  void Linger(uint32_t seat);

  // Takes a step and lets other threads run.
  void Pass(uint32_t seat);

 private:
  struct alignas(64) Seat {
    explicit Seat(uint64_t seed) : random(seed) {}

    Random random;
    uint32_t delayOneIn = 1;         // one in so many steps is delayed
    uint32_t slowOneIn = 1;          // one in so many places is slow
    uint64_t places = 0;             // seed that selects the slow places
    std::atomic<bool> taken{false};  // read by the thread whose turn it is
    std::atomic<uint64_t> sleepsUntil{0};
    std::atomic<uint32_t> turn{0};  // 1: it is this seat's turn; a futex
  };

  void StepWithDelay(Seat* seat, uint32_t oneIn);
  void SleepFor(Seat* seat, uint64_t steps);
  Seat* DrawNext(Random* random);
  void HandOver(Seat* from, Seat* to);

  std::deque<Seat> seats_;
  std::atomic<uint32_t> missing_;  // number of seats not taken yet
  std::atomic<uint64_t> now_{0};   // number of steps so far
};

}  // namespace kiv::stress

#endif
