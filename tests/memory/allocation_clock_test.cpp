// The clock of thread heaps: exact for a thread that allocates alone, and in draws for threads that keep
// meeting each other.
#include "memsys/allocation_clock.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <thread>
#include <vector>

namespace {

using kiv::AllocationClock;
using kiv::ThreadTicks;

// Draws after which the next draw is the first of several ticks, if the thread meets others each time.
constexpr uint32_t kSingleDraws = AllocationClock::kSingleDraws;
constexpr uint32_t kMostTicks = AllocationClock::kMostTicks;

// Another thread's allocation, which the thread under test meets next.
void Meet(AllocationClock* clock) {
  ThreadTicks other = {};
  clock->Advance(&other);
}

// Brings a thread to draws of the largest number of ticks, and uses up its last draw.
void MeetOften(AllocationClock* clock, ThreadTicks* own) {
  for (int meeting = 0; meeting < 100; ++meeting) {
    Meet(clock);
    clock->Advance(own);
    while (own->drawn != 0) clock->Advance(own);
  }
}

TEST(AllocationClock, CountsAThreadThatIsAloneOneByOne) {
  AllocationClock clock;
  ThreadTicks own = {};
  for (uint64_t tick = 0; tick < 1000; ++tick) {
    EXPECT_EQ(clock.Advance(&own), tick);
    EXPECT_EQ(clock.ticks(), tick + 1);
  }
}

TEST(AllocationClock, LeavesATickThatAnotherThreadHasCounted) {
  AllocationClock clock;
  ThreadTicks own = {};
  clock.Advance(&own);
  Meet(&clock);
  uint64_t tick = 4711;
  EXPECT_FALSE(clock.TryAdvance(&own, &tick));
  EXPECT_EQ(tick, 4711u);
  EXPECT_EQ(clock.ticks(), 2u);
  EXPECT_EQ(clock.Draw(&own), 2u);
  EXPECT_EQ(clock.ticks(), 3u);
}

TEST(AllocationClock, StaysExactForThreadsThatMeetAFewTimes) {
  AllocationClock clock;
  ThreadTicks first = {};
  ThreadTicks second = {};
  for (uint64_t tick = 0; tick < 2 * uint64_t{kSingleDraws}; tick += 2) {
    EXPECT_EQ(clock.Advance(&first), tick);
    EXPECT_EQ(clock.Advance(&second), tick + 1);
  }
}

TEST(AllocationClock, StaysExactForThreadsThatMeetRarely) {
  AllocationClock clock;
  ThreadTicks own = {};
  uint64_t expected = 0;
  for (uint32_t meeting = 0; meeting < 4 * kSingleDraws; ++meeting) {
    Meet(&clock);
    ++expected;
    for (uint32_t i = 0; i <= kMostTicks; ++i) EXPECT_EQ(clock.Advance(&own), expected++);
  }
  EXPECT_EQ(clock.ticks(), expected);
}

TEST(AllocationClock, DrawsMoreAndMoreTicksForThreadsThatKeepMeeting) {
  AllocationClock clock;
  ThreadTicks own = {};
  clock.Advance(&own);
  std::vector<uint32_t> draws;
  for (uint32_t meeting = 0; meeting < kSingleDraws + 9; ++meeting) {
    Meet(&clock);
    const uint64_t before = clock.ticks();
    EXPECT_EQ(clock.Advance(&own), before);
    draws.push_back(static_cast<uint32_t>(clock.ticks() - before));
    for (uint32_t i = 1; i < draws.back(); ++i) EXPECT_EQ(clock.Advance(&own), before + i);
    EXPECT_EQ(clock.ticks(), before + draws.back()) << "the drawn ticks are used first";
  }
  std::vector<uint32_t> expected(kSingleDraws, 1);
  expected.insert(expected.end(), {2, 4, 8, 16, 32, 64, 64, 64, 64});
  EXPECT_EQ(draws, expected);
}

TEST(AllocationClock, IsExactAgainForAThreadThatIsAloneAgain) {
  AllocationClock clock;
  ThreadTicks own = {};
  MeetOften(&clock, &own);
  for (uint32_t i = 0; i < 3 * kMostTicks; ++i) {
    const uint64_t before = clock.ticks();
    EXPECT_EQ(clock.Advance(&own), before);
    EXPECT_EQ(clock.ticks(), before + 1);
  }
  Meet(&clock);
  const uint64_t before = clock.ticks();
  clock.Advance(&own);
  EXPECT_EQ(clock.ticks(), before + 1) << "the meeting is the first of a new series";
}

// Returns the ticks after `threadCount` threads have made so many advances each.
uint64_t TicksOfThreads(int threadCount, uint64_t advances) {
  AllocationClock clock;
  std::atomic<int> ready{0};
  std::vector<std::thread> threads;
  for (int i = 0; i < threadCount; ++i) {
    threads.emplace_back([&] {
      ThreadTicks own = {};
      ++ready;
      while (ready < threadCount) std::this_thread::yield();
      for (uint64_t n = 0; n < advances; ++n) clock.Advance(&own);
    });
  }
  for (std::thread& thread : threads) thread.join();
  return clock.ticks();
}

TEST(AllocationClock, CountsAllThreadsAtOnceWithFewLosses) {
  constexpr int kThreads = 4;
  constexpr uint64_t kEach = 50000;
  // A thread that is interrupted between its load and its store sets the clock back to its own time.
  // This is rare, and may cost one run much.
  uint64_t most = 0;
  for (int run = 0; run < 20 && most <= kThreads * kEach / 2; ++run) {
    const uint64_t ticks = TicksOfThreads(kThreads, kEach);
    EXPECT_LE(ticks, kThreads * (kEach + kMostTicks));
    most = std::max(most, ticks);
  }
  EXPECT_GT(most, kThreads * kEach / 2);
}

TEST(AllocationClock, GivesEveryThreadItsOwnTicks) {
  kiv::OwnTicks()->next = 1;
  uint64_t next = 4711;
  std::thread([&] { next = kiv::OwnTicks()->next; }).join();
  EXPECT_EQ(next, 0u);
  EXPECT_EQ(kiv::OwnTicks()->next, 1u);
  *kiv::OwnTicks() = {};
}

}  // namespace
