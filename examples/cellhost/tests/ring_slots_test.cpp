// The places of the request ring, with both designs of the lock that guards them.
#include <gtest/gtest.h>

#include <atomic>
#include <vector>

#include "server/ring_slots.h"
#include "support/lock_design.h"
#include "support/threads.h"

namespace cellhost {

// The ring keeps pointers and never looks behind them.
class Request {
 public:
  std::atomic<uint32_t> taken{0};
};

namespace {

using kiv::test::kTestAndSet;
using kiv::test::kTicket;
using kiv::test::LockDesignTest;
using kiv::test::OnThreads;

class RingSlotsTest : public LockDesignTest {
 protected:
  RingSlots places_;
};

INSTANTIATE_TEST_SUITE_P(Design, RingSlotsTest, testing::Values(kTestAndSet, kTicket),
                         kiv::test::DesignName);

TEST_P(RingSlotsTest, AreEmptyAtFirst) { EXPECT_EQ(places_.TakeOldest(), nullptr); }

TEST_P(RingSlotsTest, GiveTheOldestFirst) {
  Request requests[kConnections];
  // From every place on, and with every count.
  for (uint32_t round = 0; round < kConnections; ++round) {
    for (uint32_t count = 0; count <= kConnections; ++count) {
      for (uint32_t at = 0; at < count; ++at) places_.Add(&requests[at]);
      for (uint32_t at = 0; at < count; ++at) EXPECT_EQ(places_.TakeOldest(), &requests[at]);
      EXPECT_EQ(places_.TakeOldest(), nullptr);
    }
    places_.Add(&requests[0]);
    EXPECT_EQ(places_.TakeOldest(), &requests[0]);
  }
}

TEST_P(RingSlotsTest, GiveEachRequestOnceToManyThreads) {
  constexpr uint32_t kGivers = 2;
  constexpr uint32_t kTakers = 2;
  constexpr uint32_t kTimes = 5000;
  Request requests[kGivers];
  std::atomic<uint32_t> left{kGivers * kTimes};
  OnThreads(kGivers + kTakers, [&](uint32_t number) {
    if (number < kGivers) {
      // As a connection does: the next one only when the last has been taken.
      Request& request = requests[number];
      for (uint32_t time = 1; time <= kTimes; ++time) {
        places_.Add(&request);
        while (request.taken.load() != time && left.load() != 0) std::this_thread::yield();
      }
      return;
    }
    while (left.load() != 0) {
      Request* request = places_.TakeOldest();
      if (request == nullptr) {
        std::this_thread::yield();
        continue;
      }
      request->taken.fetch_add(1);
      left.fetch_sub(1);
    }
  });
  for (const Request& request : requests) EXPECT_EQ(request.taken.load(), kTimes);
  EXPECT_EQ(places_.TakeOldest(), nullptr);
}

}  // namespace
}  // namespace cellhost
