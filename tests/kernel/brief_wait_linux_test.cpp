// How long and how often a thread looks at an object before it sleeps.
#include "os/lnx/brief_wait.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <thread>

#include "os/processor.h"

namespace {

using namespace kiv::os;

// Looks in vain until the thread stops looking.
void LoseHeart() {
  while (ShouldLook()) LearnFromLook(false);
}

class BriefWait : public testing::Test {
 protected:
  void SetUp() override {
    if (ProcessorCount() < 2) GTEST_SKIP() << "a single processor: threads never look";
    LoseHeart();
    while (!ShouldLook()) {
    }
    LearnFromLook(true);
  }
};

TEST_F(BriefWait, LooksOnceWhereTheConditionHolds) {
  int looks = 0;
  LookBriefly([&] { return ++looks > 0; });
  EXPECT_EQ(looks, 1);
}

TEST_F(BriefWait, LooksUntilTheConditionHolds) {
  int looks = 0;
  LookBriefly([&] { return ++looks == 5; });
  EXPECT_EQ(looks, 5);
}

TEST_F(BriefWait, EndsAfterItsTime) {
  const auto start = std::chrono::steady_clock::now();
  LookBriefly([] { return false; });
  EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::nanoseconds(kBriefWaitNs));
}

TEST_F(BriefWait, FourLooksInVainEndTheLooking) {
  int calls = 0;
  const auto never = [&] { return ++calls < 0; };
  for (int wait = 0; wait < 4; ++wait) {
    calls = 0;
    LookBriefly(never);
    EXPECT_GT(calls, 1) << wait;
  }
  calls = 0;
  LookBriefly(never);
  EXPECT_EQ(calls, 1);
}

TEST_F(BriefWait, ASuccessRestoresThePatience) {
  for (int wait = 0; wait < 3; ++wait) LearnFromLook(false);
  LearnFromLook(true);
  for (int wait = 0; wait < 3; ++wait) LearnFromLook(false);
  EXPECT_TRUE(ShouldLook());
}

TEST_F(BriefWait, TriesAgainAfterARest) {
  LoseHeart();
  int waits = 1;  // the one that LoseHeart made
  while (!ShouldLook()) ++waits;
  EXPECT_EQ(waits, 64);
  LearnFromLook(false);
  EXPECT_FALSE(ShouldLook()) << "one look in vain after a rest is enough";
}

TEST_F(BriefWait, EachThreadLearnsForItself) {
  LoseHeart();
  bool looks = false;
  std::thread([&] { looks = ShouldLook(); }).join();
  EXPECT_TRUE(looks);
}

}  // namespace
