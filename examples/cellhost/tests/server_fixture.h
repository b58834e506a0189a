// A server in the test's process, with all its threads and a small cube; and its clients.
#ifndef CELLHOST_TESTS_SERVER_FIXTURE_H
#define CELLHOST_TESTS_SERVER_FIXTURE_H

#include <gtest/gtest.h>

#include <string>
#include <string_view>

#include "client/segment_client.h"
#include "host/host_thread.h"
#include "host/waiting.h"
#include "host_fixture.h"
#include "server/connection.h"
#include "server/pipe_server.h"
#include "server/service.h"
#include "server/worker.h"
#include "support/sanitizers.h"
#include "support/waiting.h"

namespace cellhost::test {

constexpr uint32_t kWorkers = 3;

// Time-out of the server's segment: short, because the tests wait for it.
constexpr uint32_t kTestTimeoutMs = 200;

constexpr uint32_t kNumbers = 500;  // members of the second dimension

// Fruit by number: cell (apple, n) holds n. The answer to TOP number 500 needs several halves.
class Fruit : public Cube {
 public:
  Fruit() {
    EXPECT_TRUE(AddDimension("fruit") && AddDimension("number"));
    for (uint32_t number = 1; number <= kNumbers; ++number) {
      const std::string name = std::to_string(number);
      const std::string_view members[] = {"apple", name};
      EXPECT_TRUE(AddFact(members, number));
    }
  }
};

// The server's answer to "TOP number 500".
inline std::string LongAnswer() {
  std::string text = "TOP number 500: ";
  for (uint32_t number = kNumbers; number >= 1; --number) {
    const std::string name = std::to_string(number);
    text.append(name).append(" ").append(name).append(number == 1 ? "" : ", ");
  }
  return text;
}
constexpr std::string_view kLongQuery = "QUERY TOP number 500";

// All threads of `cellhost serve`. Stop ends them in the same order.
class Server {
 public:
  Server() {
    EXPECT_TRUE(service_.Create());
    service_.segment.segment()->timeoutMs = kTestTimeoutMs;
    for (HostThread& worker : workers_) EXPECT_TRUE(worker.Start(RunWorker, &service_));
    for (Connection& connection : connections_) {
      EXPECT_TRUE(connection.Start(&service_, pipe(), &connection == connections_));
    }
  }
  Server(const Server&) = delete;
  Server& operator=(const Server&) = delete;
  ~Server() { Stop(); }

  // Ends all threads; the clients must leave meanwhile.
  void Stop() {
    if (stopped_) return;
    stopped_ = true;
    service_.Stop();
    const TimeLimit limit(kiv::test::kLimitMs);
    for (Connection& connection : connections_) {
      while (!connection.EndsWithin(kBetweenWakesMs)) {
        ASSERT_FALSE(limit.passed());
        WakeAccept(pipe());
      }
    }
    for (uint32_t worker = 0; worker < kWorkers; ++worker) service_.ring.EndOne();
  }

  const char* pipe() const { return pipe_.c_str(); }
  std::string segment() const { return service_.segment.name(); }
  // The server's threads read the time-out meanwhile. They find the old one or the new one.
  KIV_TESTS_UNWATCHED void SetTimeout(uint32_t timeoutMs) {
    volatile uint32_t& place = service_.segment.segment()->timeoutMs;
    place = timeoutMs;
  }
  // The server changes the mask meanwhile. A word is read whole, and tests wait for its value.
  KIV_TESTS_UNWATCHED uint32_t takenMask() {
    const volatile uint32_t& mask = service_.segment.segment()->takenMask;
    return mask;
  }
  Service* service() { return &service_; }

 private:
  static constexpr int32_t kBetweenWakesMs = 20;

  const std::string pipe_ = kiv::test::UniqueName("cellhost_pipe");
  Fruit cube_;
  Service service_{&cube_, kNumbers, nullptr};
  HostThread workers_[kWorkers];
  Connection connections_[kConnections];
  bool stopped_ = false;
};

// A client with a chunk. Its destructor leaves the server.
class ChunkClient {
 public:
  explicit ChunkClient(const char* pipe) {
    EXPECT_TRUE(client_.Open(pipe, 0));
    EXPECT_TRUE(client_.AwaitChunk(kiv::test::kLimitMs));
  }
  ChunkClient(const ChunkClient&) = delete;
  ChunkClient& operator=(const ChunkClient&) = delete;
  ~ChunkClient() {
    if (!left_) client_.Leave();
  }

  // Leaves over the pipe, without BYE in the chunk.
  void LeaveByPipe() {
    client_.pipe()->Leave();
    left_ = true;
  }

  // Sends a request; returns the answer's code, a blank and its text.
  std::string Ask(std::string_view request) {
    Reply reply = {};
    if (!client_.Ask(request, &reply)) return "no answer";
    return std::to_string(static_cast<uint32_t>(client_.code())) + " " + std::string(reply.text);
  }

  SegmentClient* operator->() { return &client_; }
  int32_t chunk() const { return client_.chunk(); }

 private:
  SegmentClient client_;
  bool left_ = false;
};

}  // namespace cellhost::test

#endif
