// A full fence.
#ifndef KIV_SDSYNC_FENCE_H
#define KIV_SDSYNC_FENCE_H

#include <cstdint>

#include "atomic.h"

namespace kiv {

// Sequentially consistent: a locked exchange on a local word. On x86-64 this orders as much as the
// fence instruction and takes a third of the time.
inline void FullFence() {
  Atomic<uint32_t> word;
  static_cast<void>(word.exchange(0, std::memory_order_seq_cst));
}

}  // namespace kiv

#endif
