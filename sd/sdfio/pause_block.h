// The words of a pause block that some threads read while others write them.
//
//   the pauser                      a writer
//   paused = 1                      ++leases
//   leases == 0?  else wait         paused == 0?  else --leases and wait
//
// I1  Each side stores first and then reads the other side's word, both sequentially consistent.
//     Therefore at least one side sees the other's store: if a writer keeps its lease because it
//     did not see the pause, the pauser sees the lease.
// I2  `paused` becomes 1 only while the lock is held for writing. A thread that holds the lock for
//     reading and finds 0 can rely on 0 until it releases the lock.
// I3  While `paused` is 0 and no thread holds the lock for writing, the resume gate is open, or a
//     writer that holds the lock for reading is about to open it.
//
// The maximum and the start of a pause are plain: they are written while the lock is held for
// writing, and read while it is held for reading.
//
// tests/model/pause.pml describes the pause for a model checker; change both together.
#ifndef KIV_SDFIO_PAUSE_BLOCK_H
#define KIV_SDFIO_PAUSE_BLOCK_H

#include <cstdint>

#include "atomic.h"
#include "kivsdu/event.h"
#include "kivsdu/writepause.h"

namespace kiv {

// seq_cst in these three: I1. A pauser that reads a lease count of 0 also sees all data that the
// writers wrote.
inline bool IsPaused(KivSdWritePause& pause) {
  return AtomicRef<uint64_t>(pause.paused).load(std::memory_order_seq_cst) != 0;
}

inline void StorePaused(KivSdWritePause& pause, uint64_t paused) {
  AtomicRef<uint64_t>(pause.paused).store(paused, std::memory_order_seq_cst);
}

inline int32_t LeaseCount(KivSdWritePause& pause) {
  return AtomicRef<int32_t>(pause.leases).load(std::memory_order_seq_cst);
}

// relaxed: read again after every wait, and it publishes no other data.
inline bool IsShuttingDown(KivSdWritePause& pause) {
  return AtomicRef<uint8_t>(pause.shutdown).load(std::memory_order_relaxed) != 0;
}

// Compatibility: setting a gate closes it, and clearing opens it (event.h).
inline uint32_t OpenGate(KivSdContext* ctx, KivHandle* gate) { return KivSdEventClear(ctx, gate); }
inline uint32_t CloseGate(KivSdContext* ctx, KivHandle* gate) { return KivSdEventSet(ctx, gate); }

}  // namespace kiv

#endif
