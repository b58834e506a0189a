// The semaphore's word on Linux: the starving mark, which lets the thread that has waited longest
// take the next unit, and which holds no thread back for long.
#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <thread>

#include "os/lnx/counting_semaphore.h"
#include "support/waiting.h"

namespace {

using kiv::os::CountOf;
using kiv::os::GiveUnits;
using kiv::os::IsStarving;
using kiv::os::kSharedIdentity;
using kiv::os::kStarving;
using kiv::os::kUsersMask;
using kiv::os::ObjectWord;
using kiv::os::Scope;
using kiv::os::SemaphorePlace;
using kiv::os::TakeUnit;
using kiv::os::WakeTakers;
using kiv::test::kLimitMs;
using kiv::test::kShortMs;
using kiv::test::Stopwatch;

constexpr int32_t kMaximum = 8;

// The low half of a word.
constexpr uint64_t kEmpty = 0;
constexpr uint64_t kOneUnit = 1;

template <typename Condition>
bool WaitUntil(Condition condition) {
  const Stopwatch watch;
  while (!condition() && watch.ElapsedMs() < kLimitMs) std::this_thread::yield();
  return condition();
}

// A thread that waits for a unit.
class Taker {
 public:
  explicit Taker(const SemaphorePlace& semaphore, uint32_t timeoutMs = kLimitMs)
      : thread_([this, semaphore, timeoutMs] {
          result_ = TakeUnit(semaphore, timeoutMs).wait.result;
        }) {}

  uint32_t Result() {
    thread_.join();
    return result_;
  }

 private:
  uint32_t result_ = 0xFFFFFFFF;
  std::thread thread_;
};

class SemaphoreWord : public testing::TestWithParam<Scope> {
 protected:
  SemaphorePlace place() { return {&word_, kSharedIdentity, GetParam()}; }
  bool Waits() const { return (word_.load() & kUsersMask) != 0; }

  ObjectWord word_{kEmpty};
};

TEST_P(SemaphoreWord, IsMarkedByAThreadThatWasWokenInVain) {
  Taker taker(place());
  EXPECT_TRUE(WaitUntil([&] { return Waits(); }));
  EXPECT_TRUE(WaitUntil([&] {
    WakeTakers(place(), 1);
    return IsStarving(word_.load());
  }));
  EXPECT_TRUE(GiveUnits(place(), 1, kMaximum, nullptr).ok);
  EXPECT_EQ(taker.Result(), kiv::os::kWaitSignalled);
  EXPECT_EQ(word_.load(), kEmpty) << "the mark goes with the thread that set it";
}

TEST_P(SemaphoreWord, GivesItsUnitToAThreadThatWaitsBesideTheMark) {
  word_ = kStarving;
  Taker taker(place());
  EXPECT_TRUE(WaitUntil([&] { return Waits(); }));
  std::this_thread::sleep_for(std::chrono::milliseconds(kShortMs));  // until it sleeps
  EXPECT_TRUE(GiveUnits(place(), 1, kMaximum, nullptr).ok);
  EXPECT_EQ(taker.Result(), kiv::os::kWaitSignalled);
  EXPECT_EQ(word_.load(), kEmpty);
}

// The thread that set the mark may have ended.
TEST_P(SemaphoreWord, HoldsAThreadBackForAShortWhileOnly) {
  word_ = kStarving | kOneUnit;
  Taker taker(place());
  EXPECT_EQ(taker.Result(), kiv::os::kWaitSignalled);
  EXPECT_EQ(word_.load(), kEmpty);
}

TEST_P(SemaphoreWord, LosesTheMarkWhenAWaitTimesOut) {
  word_ = kStarving;
  Taker taker(place(), kShortMs);
  EXPECT_EQ(taker.Result(), kiv::os::kWaitTimedOut);
  EXPECT_EQ(word_.load(), kEmpty);
}

// Another process may write into shared memory.
TEST_P(SemaphoreWord, LosesNoMoreUsersThanItHas) {
  Taker taker(place());
  EXPECT_TRUE(WaitUntil([&] { return Waits(); }));
  word_ = kOneUnit;
  WakeTakers(place(), 1);
  EXPECT_EQ(taker.Result(), kiv::os::kWaitSignalled);
  EXPECT_EQ(word_.load(), kEmpty);
}

// In shared memory the mark may be that of a process that has ended.
TEST_P(SemaphoreWord, WithAMarkIsTakenWithoutAWaitOnlyInSharedMemory) {
  word_ = kStarving | kOneUnit;
  const bool takes = GetParam() == Scope::kShared;
  EXPECT_EQ(TakeUnit(place(), 0).wait.result,
            takes ? kiv::os::kWaitSignalled : kiv::os::kWaitTimedOut);
  EXPECT_EQ(CountOf(word_.load()), takes ? 0 : 1);
}

INSTANTIATE_TEST_SUITE_P(Scopes, SemaphoreWord, testing::Values(Scope::kProcess, Scope::kShared),
                         [](const testing::TestParamInfo<Scope>& info) {
                           return info.param == Scope::kProcess ? "Process" : "Shared";
                         });

}  // namespace
