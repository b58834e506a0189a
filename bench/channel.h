// A channel between two processes, as the benchmark of messages compares them.
#ifndef KIV_BENCH_CHANNEL_H
#define KIV_BENCH_CHANNEL_H

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "kivsdu/segment.h"

namespace kiv::bench {

constexpr char kPeerFlag[] = "--peer";
constexpr uint32_t kHalfBytes = KIV_SEGMENT_HALF_BYTES;
constexpr uint32_t kPayloadBytes = KIV_SEGMENT_PAYLOAD_BYTES;

// Ends the program with a message unless the condition holds.
inline void Require(bool holds, const char* what) {
  if (holds) return;
  std::fprintf(stderr, "segments_bench: %s\n", what);
  std::exit(1);
}

// One process's end of a connection to the other process.
class Channel {
 public:
  virtual ~Channel() = default;
  virtual void Send(const char* data, uint32_t length) = 0;
  virtual void Receive(char* data, uint32_t length) = 0;
  // Passed to the peer, which opens its end by this name.
  virtual std::string name() const = 0;
  // Called once the peer has been started.
  virtual void Connect() {}
};

}  // namespace kiv::bench

#endif
