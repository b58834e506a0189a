// Linux: identity of a thread, and giving up the processor.
#ifndef KIV_OS_LNX_INLINE_THREAD_H
#define KIV_OS_LNX_INLINE_THREAD_H

#include <sched.h>
#include <unistd.h>

#include <cstdint>

namespace kiv::os {

// Stored per thread: gettid is a system call.
inline uint32_t CurrentThreadId() {
  thread_local const uint32_t id = static_cast<uint32_t>(gettid());
  return id;
}

inline void YieldThread() { sched_yield(); }

inline void PauseProcessor() { __builtin_ia32_pause(); }

}  // namespace kiv::os

#endif
