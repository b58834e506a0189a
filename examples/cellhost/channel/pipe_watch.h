// Continues a wait in a chunk while the other end's control pipe is open. The system closes that
// pipe when the process ends, even if it is killed.
#ifndef CELLHOST_CHANNEL_PIPE_WATCH_H
#define CELLHOST_CHANNEL_PIPE_WATCH_H

#include <stdint.h>

#include <atomic>

#include "channel/chunk_channel.h"
#include "channel/pipe_end.h"

namespace cellhost {

// For one request or one answer.
class PipeWatch final : public ChunkWatch {
 public:
  //   timeoutsMax  how many time-outs of the segment to wait
  //   stop         true ends the wait; may be null
  PipeWatch(PipeEnd* pipe, uint32_t timeoutsMax, const std::atomic<bool>* stop)
      : pipe_(pipe), timeoutsMax_(timeoutsMax), stop_(stop) {}

  bool KeepsWaiting() override {
    gone_ = pipe_->Glance() == Received::kGone;
    // relaxed: the flag only ends the wait.
    const bool stopped = stop_ != nullptr && stop_->load(std::memory_order_relaxed);
    return !gone_ && !stopped && ++timeouts_ < timeoutsMax_;
  }

  bool gone() const { return gone_; }

 private:
  PipeEnd* pipe_;
  const uint32_t timeoutsMax_;
  const std::atomic<bool>* stop_;
  uint32_t timeouts_ = 0;
  bool gone_ = false;
};

}  // namespace cellhost

#endif
