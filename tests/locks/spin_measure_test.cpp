// The number of rounds that the measurement of the spin budget spins, whatever other threads do.
//
// The measurement's own source is built with a seam made by this test. The test counts every pause
// of the measuring thread, and may store a budget in the middle, as a second measuring thread
// would.
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

// Returns the number of pauses in a measurement.
uint32_t CountPauses(std::function<void()> meanwhile) {
  measuring = std::this_thread::get_id();
  pauses = 0;
  inTheMiddle = std::move(meanwhile);
  int32_t limit = -1;
  EXPECT_EQ(KivGetSpinUpperLimit(&limit), KIV_ST_OK);
  EXPECT_EQ(limit, KIV_SDSYNC_BUSYSPIN_UPPERLIMIT);
  return pauses;
}

TEST(SpinMeasure, SpinsAllRoundsOnTheBudgetThatItStores) {
  if (KivSdCPUCountGet() == 1) GTEST_SKIP() << "one processor is not measured";
  int32_t meanwhile = 0;
  EXPECT_EQ(CountPauses([&] { meanwhile = KIV_SDSYNC_BUSYSPIN_UPPERLIMIT; }), kRounds);
  EXPECT_EQ(meanwhile, static_cast<int32_t>(kRounds)) << "other threads use this budget";
}

TEST(SpinMeasure, SpinsAllRoundsEvenIfAnotherThreadStoresABudget) {
  if (KivSdCPUCountGet() == 1) GTEST_SKIP() << "one processor is not measured";
  for (const int32_t budget : {0, 3000, 1'000'000, INT32_MIN}) {
    SCOPED_TRACE(budget);
    EXPECT_EQ(CountPauses([budget] { KIV_SDSYNC_BUSYSPIN_UPPERLIMIT = budget; }), kRounds);
    EXPECT_NE(KIV_SDSYNC_BUSYSPIN_UPPERLIMIT, budget) << "the measured budget wins";
  }
}

}  // namespace

void kiv::test::OnPause() {
  if (std::this_thread::get_id() != measuring) return;
  if (++pauses == kMiddle) inTheMiddle();
}

void kiv::test::OnYield() {}
