#include "lock_stress/delay.h"

#include <sched.h>
#include <sys/prctl.h>
#include <time.h>

#include "lock_stress/random.h"

// Where the program begins in memory; from the linker.
extern "C" const char __executable_start;

namespace kiv::stress {
namespace {

constexpr uint32_t kLongestSleepUs = 50;
constexpr uint32_t kMostPauses = 64;

thread_local bool isDelayed = false;
thread_local Random chances(0);
thread_local Pace pace = {};
thread_local uint64_t placesSeed = 0;

bool Comes(uint32_t chance, uint32_t oneIn) { return (chance & (oneIn - 1)) == 0; }

// A place is an instruction, counted from where the program begins: the same in every run.
bool IsSlow(const void* place) {
  const auto offset = static_cast<uint64_t>(static_cast<const char*>(place) - &__executable_start);
  return Comes(static_cast<uint32_t>(Scramble(placesSeed ^ offset)), pace.slowPlaceOneIn);
}

void Sleep() {
  const timespec time = {0, static_cast<long>(chances.Between(1, kLongestSleepUs)) * 1000};
  nanosleep(&time, nullptr);
}

void Pause() {
  for (uint32_t left = chances.Between(1, kMostPauses); left > 0; --left) __builtin_ia32_pause();
}

}  // namespace

void StartDelays(uint64_t seed, const Pace& ownPace) {
  // Without this the system adds 50 us to every sleep.
  prctl(PR_SET_TIMERSLACK, 1);
  chances = Random(seed);
  placesSeed = Scramble(seed);
  pace = ownPace;
  isDelayed = true;
}

// Where it is called from tells the place.
__attribute__((noinline)) void Delay() {
  if (!isDelayed) return;
  const uint32_t chance = chances.Next();
  // The rarer first: the chances are parts of one another.
  if (Comes(chance, pace.sleepOneIn)) {
    Sleep();
  } else if (Comes(chance, pace.yieldOneIn)) {
    sched_yield();
  } else if (IsSlow(__builtin_return_address(0)) && chances.OneIn(2)) {
    Sleep();
  } else if (Comes(chance, pace.pauseOneIn)) {
    Pause();
  }
}

void Linger() {
  Delay();
  if (isDelayed && chances.OneIn(8)) Sleep();
}

}  // namespace kiv::stress
