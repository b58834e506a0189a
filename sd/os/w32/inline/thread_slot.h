// Windows. Declares the system call itself: the seam's headers do not include <windows.h>.
#ifndef KIV_OS_W32_INLINE_THREAD_SLOT_H
#define KIV_OS_W32_INLINE_THREAD_SLOT_H

#include <cstdint>

extern "C" __declspec(dllimport) void* __stdcall TlsGetValue(unsigned long slot);

namespace kiv::os {

inline void* ReadThreadSlot(uint32_t slot) { return TlsGetValue(slot); }

}  // namespace kiv::os

#endif
