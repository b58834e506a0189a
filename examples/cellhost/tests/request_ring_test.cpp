// Requests between connections and workers, with both designs of the ring's lock.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <string>
#include <string_view>
#include <thread>

#include "host_fixture.h"
#include "server/request_ring.h"
#include "support/lock_design.h"
#include "support/threads.h"

namespace cellhost {
namespace {

using kiv::test::kTestAndSet;
using kiv::test::kTicket;
using kiv::test::LockDesignTest;
using kiv::test::OnThreads;
using test::InThread;

class RequestRingTest : public LockDesignTest {
 protected:
  RequestRingTest() { EXPECT_TRUE(ring_.Create()); }

  test::InHost host_;
  RequestRing ring_;
};

INSTANTIATE_TEST_SUITE_P(Design, RequestRingTest, testing::Values(kTestAndSet, kTicket),
                         kiv::test::DesignName);

TEST_P(RequestRingTest, PassesOnRequestsInOrder) {
  Request requests[kConnections];
  for (Request& request : requests) EXPECT_TRUE(ring_.Put(&request));
  for (Request& request : requests) EXPECT_EQ(ring_.Take(), &request);
}

TEST_P(RequestRingTest, EndsAWorkerOnceTheRequestsAreTaken) {
  Request request;
  EXPECT_TRUE(ring_.Put(&request));
  ring_.EndOne();
  ring_.EndOne();
  EXPECT_EQ(ring_.Take(), &request);
  EXPECT_EQ(ring_.Take(), nullptr);
  EXPECT_EQ(ring_.Take(), nullptr);
}

TEST_P(RequestRingTest, ReturnsEachReplyToItsConnection) {
  constexpr uint32_t kWorkers = 3;
  constexpr uint32_t kTimes = 50;
  std::atomic<uint32_t> asking{kConnections};
  OnThreads(kConnections + kWorkers, [&](uint32_t number) {
    const InThread record;
    if (number >= kConnections) {
      while (Request* request = ring_.Take()) {
        request->reply.Clear();
        for (const char c : request->text) EXPECT_TRUE(request->reply.Append(c));
        request->SignalDone();
      }
      return;
    }
    Request request;
    EXPECT_TRUE(request.Create());
    for (uint32_t time = 0; time < kTimes; ++time) {
      const std::string text = std::to_string(number) + " asks " + std::to_string(time);
      request.text = text;
      EXPECT_TRUE(ring_.Put(&request));
      EXPECT_TRUE(request.AwaitDone());
      EXPECT_EQ(std::string_view(request.reply.data(), request.reply.count()), text);
    }
    if (asking.fetch_sub(1) != 1) return;
    for (uint32_t worker = 0; worker < kWorkers; ++worker) ring_.EndOne();
  });
}

}  // namespace
}  // namespace cellhost
