// Random delays, which take a thread off its way between any two accesses to what threads share.
#ifndef KIV_TESTS_LOCK_STRESS_DELAY_H
#define KIV_TESTS_LOCK_STRESS_DELAY_H

#include <cstdint>

namespace kiv::stress {

// How often a thread is delayed, and how: one in so many chances, each a power of two. A run of
// pauses moves two threads against each other by some instructions, a yield lets others go far,
// and a sleep of 1 to 50 us lets them take and leave a lock several times.
//
// Besides, one in so many places of the code is slow: every other time that the thread comes
// there, it sleeps. Mistakes that take two or three long delays, each at its own place, with no
// delay elsewhere, come to light this way.
struct Pace {
  uint32_t pauseOneIn;
  uint32_t yieldOneIn;
  uint32_t sleepOneIn;
  uint32_t slowPlaceOneIn;
};

// Threads that differ meet in more ways than threads that are alike.
constexpr uint32_t kNone = 0x80000000;
constexpr Pace kPaces[] = {
    {kNone, kNone, kNone, kNone},
    {256, 4096, 16384, 4},
    {256, 4096, 16384, 8},
    {64, 4096, 16384, 16},
    {8, 256, 4096, 32},
    {4, 32, 512, kNone},
    {2, 8, 32, kNone},
};

// From here on the calling thread is delayed; a thread that never calls this is not. The seed also
// draws the slow places.
void StartDelays(uint64_t seed, const Pace& pace);

// A chance to be delayed.
void Delay();

// Stays where it is, at times for as long as others need to take and leave a lock several times.
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
