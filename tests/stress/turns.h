// Threads that take turns: one runs at a time, and the seed decides who runs next and for how
// long.
#ifndef KIV_TESTS_STRESS_TURNS_H
#define KIV_TESTS_STRESS_TURNS_H

#include <atomic>
#include <cstdint>
#include <deque>

#include "stress/random.h"

namespace kiv::stress {

// Time is counted in the steps of all threads. A thread that is delayed sleeps for some of them,
// and the turn goes to one that is awake. It may be delayed at any step; but some places of the
// code are slow for it, where it is delayed every other time. Mistakes that take three or four
// long delays, each at its own place and none between, come to light this way.
//
// A turn is handed over without any order that a sanitizer knows of: its atomics are relaxed and
// its waits are the kernel's own. So the lock alone orders what it guards here, too.
class Turns {
 public:
  Turns(uint64_t seed, uint32_t seats);
  Turns(const Turns&) = delete;
  Turns& operator=(const Turns&) = delete;

  // Takes a seat, and returns when all are taken and it is the seat's turn.
  void Join(uint32_t seat);

  // Only in turn: gives the seat up.
  void Leave(uint32_t seat);

  // Only in turn: draws anew how often the thread is delayed, and its slow places.
  void ChangePace(uint32_t seat);

  // Only in turn: a step, at a place in the code. Most go on at once; some are followed by a delay.
  void Step(uint32_t seat, const void* place);

  // Only in turn: a step, often followed by a delay.
  void Linger(uint32_t seat);

  // Only in turn: a step that waits for others.
  void Pass(uint32_t seat);

 private:
  struct alignas(64) Seat {
    explicit Seat(uint64_t seed) : random(seed) {}

    Random random;
    uint32_t delayOneIn = 1;         // steps
    uint32_t slowOneIn = 1;          // places
    uint64_t places = 0;             // decides which
    std::atomic<bool> taken{false};  // read by whoever is in turn
    std::atomic<uint64_t> sleepsUntil{0};
    std::atomic<uint32_t> turn{0};  // 1: it is the seat's; the kernel waits on it
  };

  void StepWithDelay(Seat* seat, uint32_t oneIn);
  void SleepFor(Seat* seat, uint64_t steps);
  Seat* DrawNext(Random* random);
  void HandOver(Seat* from, Seat* to);

  std::deque<Seat> seats_;
  std::atomic<uint32_t> missing_;  // seats that are not taken yet
  std::atomic<uint64_t> now_{0};   // steps so far
};

}  // namespace kiv::stress

#endif
