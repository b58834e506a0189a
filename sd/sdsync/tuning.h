// Process-wide tuning variables of the locks.
//
// The host and the environment set them before locks are used; no lock guards them. They are
// atomic, so that no reader sees half of a late write. Every access is relaxed, because no variable
// publishes other data.
#ifndef KIV_SDSYNC_TUNING_H
#define KIV_SDSYNC_TUNING_H

#include <cstdint>

#include "atomic.h"
#include "compiler.h"
#include "kivsdu/sync.h"

namespace kiv {

// Limits for one kind of waiting thread.
struct WaitLimits {
  Atomic<int32_t> spinLoops;
  Atomic<int32_t> spinYields;
  Atomic<int32_t> waitLoops;
};

extern WaitLimits spinlockLimits;  // displayed; no lock uses them
extern WaitLimits readerLimits;
extern WaitLimits writerLimits;

// Non-zero selects the ticket designs of the locks and the larger per-thread caches. Defined in
// this header, so that every reader needs one load: a variable that is only declared might lie in
// another DLL, and the compiler would access it through a pointer.
inline Atomic<uint8_t> hardwareAcceleration{0};

KIV_ALWAYS_INLINE bool HardwareAcceleration() {
  return hardwareAcceleration.load(std::memory_order_relaxed) != 0;
}
KIV_ALWAYS_INLINE bool UsesTickets() { return HardwareAcceleration(); }

// Marks a lock of the test-and-set design in a memory dump; nothing reads it.
constexpr uint32_t kCreationMark = 256;

// The spin budget is a plain exported variable, because hosts read it too.
inline int32_t SpinBudget() {
  return AtomicRef<int32_t>(KIV_SDSYNC_BUSYSPIN_UPPERLIMIT).load(std::memory_order_relaxed);
}

inline void SetSpinBudget(int32_t rounds) {
  AtomicRef<int32_t>(KIV_SDSYNC_BUSYSPIN_UPPERLIMIT).store(rounds, std::memory_order_relaxed);
}

}  // namespace kiv

#endif
