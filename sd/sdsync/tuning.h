// The process-wide tuning that locks read.
//
// Host and environment write these before locks are used; nothing guards them. They are atomic
// so that a late write is seen whole; every access is relaxed, for none announces another.
#ifndef KIV_SDSYNC_TUNING_H
#define KIV_SDSYNC_TUNING_H

#include <cstdint>

#include "atomic.h"
#include "kivsdu/sync.h"

namespace kiv {

// Limits of one kind of lock's waiting.
struct WaitLimits {
  Atomic<int32_t> spinLoops;
  Atomic<int32_t> spinYields;
  Atomic<int32_t> waitLoops;
};

extern WaitLimits spinlockLimits;  // shown, and used by no lock
extern WaitLimits readerLimits;
extern WaitLimits writerLimits;

// Non-zero: ticket designs of locks, and large caches of threads. Defined here, so that every user
// reads it in one load: a variable that is only declared might lie in another DLL, and compilers
// reach it through a pointer.
inline Atomic<uint8_t> hardwareAcceleration{0};

inline bool HardwareAcceleration() {
  return hardwareAcceleration.load(std::memory_order_relaxed) != 0;
}
inline bool UsesTickets() { return HardwareAcceleration(); }

// What a lock of the test-and-set design carries beside its word, for people who look at memory.
constexpr uint32_t kCreationMark = 256;

// The spin budget lies in a plain variable, which hosts see too.
inline int32_t SpinBudget() {
  return AtomicRef<int32_t>(KIV_SDSYNC_BUSYSPIN_UPPERLIMIT).load(std::memory_order_relaxed);
}

inline void SetSpinBudget(int32_t rounds) {
  AtomicRef<int32_t>(KIV_SDSYNC_BUSYSPIN_UPPERLIMIT).store(rounds, std::memory_order_relaxed);
}

}  // namespace kiv

#endif
