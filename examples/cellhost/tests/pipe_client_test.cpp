// Clients of a pipe whose instances are all taken.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <string>
#include <thread>

#include "client/pipe_client.h"
#include "host_fixture.h"
#include "kivsdu/pipe.h"
#include "server/pipe_server.h"
#include "support/waiting.h"

namespace cellhost {
namespace {

constexpr uint32_t kOneInstance = 1;
// Longer than a client waits at once: it must try more than once.
constexpr auto kTakenFor = std::chrono::milliseconds(500);

class PipeClientTest : public ::testing::Test {
 protected:
  test::InHost host_;
  const std::string name_ = kiv::test::UniqueName("pipe_client");
};

TEST_F(PipeClientTest, WaitsWhileTheOnlyInstanceServesAnotherClient) {
  PipeServer server;
  ASSERT_TRUE(server.Create(name_.c_str(), kOneInstance, true));
  PipeClient first;
  ASSERT_TRUE(first.Open(name_.c_str(), 0));
  ASSERT_EQ(server.Accept(), Accepted::kClient);

  std::atomic<bool> ended{false};
  bool opened = false;
  std::thread waiting([&] {
    const test::InThread record;
    PipeClient second;
    opened = second.Open(name_.c_str(), 0);
    if (opened) second.Leave();
    ended = true;
  });
  std::this_thread::sleep_for(kTakenFor);
  EXPECT_FALSE(ended) << "the second client did not wait";
  first.Leave();
  server.CutOff();
  EXPECT_NE(server.Accept(), Accepted::kFailed);
  waiting.join();
  EXPECT_TRUE(opened);
}

TEST_F(PipeClientTest, SaysAtOnceThatNoServerListens) {
  PipeClient client;
  testing::internal::CaptureStderr();
  EXPECT_FALSE(client.Open(name_.c_str(), 0));
  const std::string said = testing::internal::GetCapturedStderr();
  EXPECT_NE(said.find("no server on the pipe"), said.npos) << said;
}

}  // namespace
}  // namespace cellhost
