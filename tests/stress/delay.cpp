#include "stress/delay.h"

#include <sched.h>
#include <sys/prctl.h>
#include <time.h>

#include "stress/random.h"
#include "stress/turns.h"

namespace kiv::stress {
namespace {

constexpr uint32_t kLongestSleepUs = 50;
constexpr uint32_t kMaxPauses = 64;
constexpr uint32_t kLingersOneIn = 8;

// How a thread is delayed.
struct Delays {
  bool real = false;
  Random random{0};
  Pace pace = {};
  Turns* turns = nullptr;
  uint32_t seat = 0;
};
thread_local Delays own;

bool Comes(uint32_t chance, uint32_t oneIn) { return (chance & (oneIn - 1)) == 0; }

void Sleep() {
  const timespec time = {0, static_cast<long>(own.random.Between(1, kLongestSleepUs)) * 1000};
  nanosleep(&time, nullptr);
}

void Pause() {
  for (uint32_t left = own.random.Between(1, kMaxPauses); left > 0; --left) {
    __builtin_ia32_pause();
  }
}

void DelayReally() {
  const uint32_t chance = own.random.Next();
  // The rarest delay first, because its chance is part of the others.
  if (Comes(chance, own.pace.sleepOneIn)) {
    Sleep();
  } else if (Comes(chance, own.pace.yieldOneIn)) {
    sched_yield();
  } else if (Comes(chance, own.pace.pauseOneIn)) {
    Pause();
  }
}

}  // namespace

void DelayFor(uint64_t seed, const Pace& pace) {
  // Without this the system adds 50 us to every sleep.
  prctl(PR_SET_TIMERSLACK, 1);
  own = {.real = true, .random = Random(seed), .pace = pace};
}

void DelayInTurns(Turns* turns, uint32_t seat) {
  own = {.turns = turns, .seat = seat};
  turns->Join(seat);
}

void EndDelays() {
  if (own.turns != nullptr) own.turns->Leave(own.seat);
  own = {};
}

// Not inlined: the return address identifies the caller's place in the code.
__attribute__((noinline)) void Delay() {
  if (own.turns != nullptr) {
    own.turns->Step(own.seat, __builtin_return_address(0));
  } else if (own.real) {
    DelayReally();
  }
}

bool LetOthersOn() {
  if (own.turns == nullptr) return false;
  own.turns->Pass(own.seat);
  return true;
}

void Linger() {
  Delay();
  if (own.turns != nullptr) {
    own.turns->Linger(own.seat);
  } else if (own.real && own.random.OneIn(kLingersOneIn)) {
    Sleep();
  }
}

}  // namespace kiv::stress
