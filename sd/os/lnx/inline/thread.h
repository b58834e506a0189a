// Linux: identity of a thread, and giving up the processor.
#ifndef KIV_OS_LNX_INLINE_THREAD_H
#define KIV_OS_LNX_INLINE_THREAD_H

#include <sched.h>

#include <cstdint>

namespace kiv::os {

// Stored per thread, because gettid is a system call; 0 until the thread asks for it.
extern constinit thread_local uint32_t currentThreadId;
uint32_t LearnThreadId();

inline uint32_t CurrentThreadId() {
  const uint32_t id = currentThreadId;
  return id != 0 ? id : LearnThreadId();
}

inline uint32_t KnownThreadId() { return currentThreadId; }

inline void YieldThread() { sched_yield(); }

#if defined(__x86_64__)
inline void PauseProcessor() { __builtin_ia32_pause(); }
#elif defined(__aarch64__)
inline void PauseProcessor() { asm volatile("yield"); }
#else
#error "name this processor's hint for busy waits"
#endif

}  // namespace kiv::os

#endif
