#include "os/thread_slot.h"

#include "os/w32/win32.h"

namespace kiv::os {

ValueResult<uint32_t> AllocateThreadSlot() {
  const DWORD slot = TlsAlloc();
  if (slot == TLS_OUT_OF_INDEXES) return {false, GetLastError(), 0};
  return {true, 0, slot};
}

Result FreeThreadSlot(uint32_t slot) { return FromBool(TlsFree(slot)); }

Result WriteThreadSlot(uint32_t slot, void* value) { return FromBool(TlsSetValue(slot, value)); }

}  // namespace kiv::os
