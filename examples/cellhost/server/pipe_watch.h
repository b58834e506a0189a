// Waits for the other end of a chunk as long as its end of the control pipe is open: a process that
// ends, however it does, closes it.
#ifndef CELLHOST_SERVER_PIPE_WATCH_H
#define CELLHOST_SERVER_PIPE_WATCH_H

#include <stdint.h>

#include <atomic>

#include "server/chunk_channel.h"
#include "server/pipe_end.h"

namespace cellhost {

// For one request or one answer.
class PipeWatch final : public ChunkWatch {
 public:
  // timeoutsMax: of the segment, so often in all, as long as the other end is open
  // stop:        ends the wait when it is true; null if nothing does
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
