#include "stress/turns.h"

#include <linux/futex.h>
#include <sys/syscall.h>
#include <unistd.h>

// The program's address in memory; defined by the linker.
extern "C" const char __executable_start;

namespace kiv::stress {
namespace {

constexpr std::memory_order kRelaxed = std::memory_order_relaxed;
constexpr uint32_t kDelayOneIn[] = {64, 256, 1024};
constexpr uint32_t kDelayWhereSlowOneIn = 2;
constexpr uint32_t kSlowOneIn[] = {8, 16};
constexpr uint32_t kLingersOneIn = 8;
constexpr uint32_t kLongestDelayBits = 10;  // up to 2^10 steps: some dozens of entries
constexpr uint32_t kLongestPassBits = 6;

// Draws the number of bits first, so that short and long delays are equally likely.
uint64_t DrawSteps(Random* random, uint32_t mostBits) {
  const uint32_t bits = random->Between(1, mostBits);
  return (uint64_t{1} << (bits - 1)) + random->Below(1u << (bits - 1));
}

void Futex(std::atomic<uint32_t>* word, int operation, uint32_t value) {
  syscall(SYS_futex, word, operation | FUTEX_PRIVATE_FLAG, value, nullptr, nullptr, 0);
}

void AwaitTurn(std::atomic<uint32_t>* turn) {
  while (turn->exchange(0, kRelaxed) == 0) Futex(turn, FUTEX_WAIT, 0);
}

void GiveTurn(std::atomic<uint32_t>* turn) {
  turn->store(1, kRelaxed);
  Futex(turn, FUTEX_WAKE, 1);
}

}  // namespace

Turns::Turns(uint64_t seed, uint32_t seats) : missing_(seats) {
  for (uint32_t seat = 0; seat < seats; ++seat) seats_.emplace_back(Scramble(seed) + seat);
}

void Turns::Join(uint32_t seat) {
  Seat& own = seats_[seat];
  own.taken.store(true, kRelaxed);
  // The first seat begins in every run, not the thread that happens to join last.
  if (missing_.fetch_sub(1, kRelaxed) == 1) GiveTurn(&seats_.front().turn);
  AwaitTurn(&own.turn);
}

void Turns::Leave(uint32_t seat) {
  Seat& own = seats_[seat];
  own.taken.store(false, kRelaxed);
  Seat* next = DrawNext(&own.random);
  if (next != nullptr) GiveTurn(&next->turn);
}

void Turns::ChangePace(uint32_t seat) {
  Seat& own = seats_[seat];
  own.delayOneIn = own.random.OneOf(kDelayOneIn);
  own.slowOneIn = own.random.OneOf(kSlowOneIn);
  own.places = own.random.Next();
}

void Turns::Step(uint32_t seat, const void* place) {
  Seat& own = seats_[seat];
  // Relative to the program's address, a place has the same number in every run.
  const auto number = static_cast<uint64_t>(static_cast<const char*>(place) - &__executable_start);
  const bool isSlow = Random(own.places ^ number).OneIn(own.slowOneIn);
  StepWithDelay(&own, isSlow ? kDelayWhereSlowOneIn : own.delayOneIn);
}

void Turns::Linger(uint32_t seat) { StepWithDelay(&seats_[seat], kLingersOneIn); }

void Turns::Pass(uint32_t seat) {
  Seat& own = seats_[seat];
  now_.store(now_.load(kRelaxed) + 1, kRelaxed);
  SleepFor(&own, DrawSteps(&own.random, kLongestPassBits));
}

void Turns::StepWithDelay(Seat* seat, uint32_t oneIn) {
  now_.store(now_.load(kRelaxed) + 1, kRelaxed);
  if (seat->random.OneIn(oneIn)) SleepFor(seat, DrawSteps(&seat->random, kLongestDelayBits));
}

void Turns::SleepFor(Seat* seat, uint64_t steps) {
  seat->sleepsUntil.store(now_.load(kRelaxed) + steps, kRelaxed);
  HandOver(seat, DrawNext(&seat->random));
}

// Returns a random seat that is awake. If all sleep, returns the first to wake and advances the
// time to its wake-up. Null if no seat is taken.
Turns::Seat* Turns::DrawNext(Random* random) {
  const uint64_t now = now_.load(kRelaxed);
  Seat* drawn = nullptr;
  Seat* first = nullptr;
  uint32_t awake = 0;
  for (Seat& seat : seats_) {
    if (!seat.taken.load(kRelaxed)) continue;
    const uint64_t wakes = seat.sleepsUntil.load(kRelaxed);
    if (first == nullptr || wakes < first->sleepsUntil.load(kRelaxed)) first = &seat;
    if (wakes <= now && random->OneIn(++awake)) drawn = &seat;
  }
  if (drawn != nullptr || first == nullptr) return drawn;
  now_.store(first->sleepsUntil.load(kRelaxed), kRelaxed);
  return first;
}

void Turns::HandOver(Seat* from, Seat* to) {
  if (from == to) return;
  GiveTurn(&to->turn);
  AwaitTurn(&from->turn);
}

}  // namespace kiv::stress
