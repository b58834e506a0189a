// What threads read of a pause block while others write it.
//
//   the pauser                      a writer
//   paused = 1                      ++leases
//   leases == 0?  else wait         paused == 0?  else --leases and wait
//
// I1  Each stores first and looks at the other's word second, both sequentially consistent: at
//     least one of them sees the other. A writer with a lease that did not see the pause is one
//     whose lease the pauser sees.
// I2  `paused` becomes 1 only under the lock held for writing. Who holds it for reading and finds 0
//     has 0 until it gives the lock back.
// I3  While `paused` is 0 and nobody holds the lock for writing, the resume gate is open, or a
// writer
//     that holds the lock for reading is about to open it.
//
// The maximum and the start of a pause are plain: written under the lock held for writing, read
// under it held for reading.
#ifndef KIV_SDFIO_PAUSE_BLOCK_H
#define KIV_SDFIO_PAUSE_BLOCK_H

#include <cstdint>

#include "atomic.h"
#include "kivsdu/event.h"
#include "kivsdu/writepause.h"

namespace kiv {

// seq_cst: I1. Also orders what a pauser reads after a lease's end behind what the writer wrote.
inline bool IsPaused(KivSdWritePause& pause) {
  return AtomicRef<uint64_t>(pause.paused).load(std::memory_order_seq_cst) != 0;
}

inline void StorePaused(KivSdWritePause& pause, uint64_t paused) {
  AtomicRef<uint64_t>(pause.paused).store(paused, std::memory_order_seq_cst);
}

inline int32_t LeaseCount(KivSdWritePause& pause) {
  return AtomicRef<int32_t>(pause.leases).load(std::memory_order_seq_cst);
}

// relaxed: asked again after every wait, and nothing is handed over by it.
inline bool IsShuttingDown(KivSdWritePause& pause) {
  return AtomicRef<uint8_t>(pause.shutdown).load(std::memory_order_relaxed) != 0;
}

// A gate is set to close it and cleared to open it.
inline uint32_t OpenGate(KivSdContext* ctx, KivHandle* gate) { return KivSdEventClear(ctx, gate); }
inline uint32_t CloseGate(KivSdContext* ctx, KivHandle* gate) { return KivSdEventSet(ctx, gate); }

}  // namespace kiv

#endif
