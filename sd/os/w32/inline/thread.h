// Windows. Declares the system calls itself: the seam's headers do not include <windows.h>.
#ifndef KIV_OS_W32_INLINE_THREAD_H
#define KIV_OS_W32_INLINE_THREAD_H

#include <immintrin.h>
#ifdef _MSC_VER
#include <intrin.h>
#endif

#include <cstdint>

extern "C" __declspec(dllimport) unsigned long __stdcall GetCurrentThreadId(void);
extern "C" __declspec(dllimport) void __stdcall Sleep(unsigned long timeMs);

namespace kiv::os {

inline uint32_t CurrentThreadId() { return GetCurrentThreadId(); }

// The thread's block has the identifier at this place in every 64-bit Windows.
#ifdef _MSC_VER
inline uint32_t KnownThreadId() { return __readgsdword(0x48); }
#else
inline uint32_t KnownThreadId() {
  uint32_t id;
  asm("movl %%gs:0x48, %0" : "=r"(id));
  return id;
}
#endif

inline void YieldThread() { Sleep(0); }

inline void PauseProcessor() { _mm_pause(); }

}  // namespace kiv::os

#endif
