// Windows: the call is declared here, because <windows.h> stays out of the seam's headers.
#ifndef KIV_OS_W32_INLINE_THREAD_SLOT_H
#define KIV_OS_W32_INLINE_THREAD_SLOT_H

#include <cstdint>

extern "C" __declspec(dllimport) void* __stdcall TlsGetValue(unsigned long slot);

namespace kiv::os {

inline void* ReadThreadSlot(uint32_t slot) { return TlsGetValue(slot); }

}  // namespace kiv::os

#endif
