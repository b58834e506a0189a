// Full fences. Only this file and the bindings of the platforms depend on the processor.
#ifndef KIV_SDSYNC_FENCE_H
#define KIV_SDSYNC_FENCE_H

#include <cstdint>

#include "atomic.h"

namespace kiv {

#if defined(__x86_64__) || defined(_M_X64)

// Sequentially consistent: a locked exchange on a local word. It orders as much as the fence
// instruction and takes a third of the time.
inline void FullFence() {
  Atomic<uint32_t> word;
  static_cast<void>(word.exchange(0, std::memory_order_seq_cst));
}

// Makes a sequentially consistent read-modify-write, to which it is the next statement, a full fence
// for all other accesses. Here such an operation is a locked instruction, and is a full fence.
inline void FenceAfterLocked() {}

#else

inline void FullFence() { std::atomic_thread_fence(std::memory_order_seq_cst); }

// Here a later read may overtake the write of such an operation, and with it an earlier write.
inline void FenceAfterLocked() { FullFence(); }

#endif

}  // namespace kiv

#endif
