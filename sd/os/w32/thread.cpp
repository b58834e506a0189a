#include "os/thread.h"

#include "os/w32/win32.h"

namespace kiv::os {

static_assert(sizeof(DWORD) == sizeof(uint32_t));

ValueResult<void*> StartThread(ThreadRoutine routine, void* argument, uint32_t stackBytes,
                               uint32_t* id) {
  // Both function types have the platform's C calling convention and a 32-bit result.
  const auto start = reinterpret_cast<LPTHREAD_START_ROUTINE>(reinterpret_cast<void*>(routine));
  return FromPointer(
      CreateThread(nullptr, stackBytes, start, argument, 0, reinterpret_cast<DWORD*>(id)));
}

void* CurrentThreadHandle() { return GetCurrentThread(); }

Result JoinThread(void* handle) { return FromWait(WaitForSingleObject(handle, INFINITE)); }

Result CloseThread(void* handle) { return FromBool(CloseHandle(handle)); }

// Only newer systems have the call.
void NameCurrentThread(const char* /*name*/) {}

void SleepMs(uint32_t timeMs) { Sleep(timeMs); }

}  // namespace kiv::os
