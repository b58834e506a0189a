// How many rounds the measurement of the spin budget spins, whatever other threads do meanwhile.
//
// The measurement's own source, built with a seam that belongs to the test: every pause of the
// thread that measures is counted, and the test may store a budget in the middle, as a second
// thread does that measures at the same time.
#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <thread>

#include "inline/thread.h"
#include "kivsdu/kivsdu.h"

namespace {

constexpr uint32_t kRounds = 400'000;
constexpr uint32_t kMiddle = 1000;

std::thread::id measuring;
uint32_t pauses = 0;
std::function<void()> inTheMiddle;

// The pauses of a measurement.
uint32_t CountPauses(std::function<void()> meanwhile) {
  measuring = std::this_thread::get_id();
  pauses = 0;
  inTheMiddle = std::move(meanwhile);
  int32_t limit = -1;
  EXPECT_EQ(KivGetSpinUpperLimit(&limit), KIV_ST_OK);
  EXPECT_EQ(limit, KIV_SDSYNC_BUSYSPIN_UPPERLIMIT);
  return pauses;
}

TEST(SpinMeasure, SpinsItsRoundsOnTheBudgetThatItStores) {
  if (KivSdCPUCountGet() == 1) GTEST_SKIP() << "one processor is not measured";
  int32_t meanwhile = 0;
  EXPECT_EQ(CountPauses([&] { meanwhile = KIV_SDSYNC_BUSYSPIN_UPPERLIMIT; }), kRounds);
  EXPECT_EQ(meanwhile, static_cast<int32_t>(kRounds)) << "others spin as long";
}

TEST(SpinMeasure, SpinsItsRoundsWhateverBudgetAnotherThreadStoresMeanwhile) {
  if (KivSdCPUCountGet() == 1) GTEST_SKIP() << "one processor is not measured";
  for (const int32_t budget : {0, 3000, 1'000'000, INT32_MIN}) {
    SCOPED_TRACE(budget);
    EXPECT_EQ(CountPauses([budget] { KIV_SDSYNC_BUSYSPIN_UPPERLIMIT = budget; }), kRounds);
    EXPECT_NE(KIV_SDSYNC_BUSYSPIN_UPPERLIMIT, budget) << "what was measured stands";
  }
}

}  // namespace

void kiv::test::OnPause() {
  if (std::this_thread::get_id() != measuring) return;
  if (++pauses == kMiddle) inTheMiddle();
}

void kiv::test::OnYield() {}
