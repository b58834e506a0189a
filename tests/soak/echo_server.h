// The coordinator's end of the segment that it shares with one process: sends every message back.
#ifndef KIV_TESTS_SOAK_ECHO_SERVER_H
#define KIV_TESTS_SOAK_ECHO_SERVER_H

#include <atomic>
#include <cstdint>
#include <string>
#include <thread>

#include "soak/segment_end.h"

namespace kiv::soak {

class EchoServer {
 public:
  EchoServer(const std::string& prefix, uint32_t process);
  ~EchoServer();  // the process has ended

  // Call it before the process starts. After a killed process it prepares the chunk for the next.
  void Start();
  void Stop();

  uint64_t messages() const { return messages_.load(); }

 private:
  void Serve();

  SegmentEnd end_;
  std::thread thread_;
  std::atomic<bool> stop_{false};
  std::atomic<uint64_t> messages_{0};
};

}  // namespace kiv::soak

#endif
