// Windows. Declares the system calls itself: the seam's headers do not include <windows.h>.
#ifndef KIV_OS_W32_INLINE_THREAD_H
#define KIV_OS_W32_INLINE_THREAD_H

#include <immintrin.h>

#include <cstdint>

extern "C" __declspec(dllimport) unsigned long __stdcall GetCurrentThreadId(void);
extern "C" __declspec(dllimport) void __stdcall Sleep(unsigned long timeMs);

namespace kiv::os {

inline uint32_t CurrentThreadId() { return GetCurrentThreadId(); }

inline void YieldThread() { Sleep(0); }

inline void PauseProcessor() { _mm_pause(); }

}  // namespace kiv::os

#endif
