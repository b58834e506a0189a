#include "os/pages.h"

#include "os/w32/win32.h"

namespace kiv::os {

const uint32_t kErrorLockQuota = ERROR_WORKING_SET_QUOTA;

ValueResult<void*> CommitPages(uint64_t sizeBytes) {
  return FromPointer(VirtualAlloc(nullptr, sizeBytes, MEM_COMMIT, PAGE_READWRITE));
}

Result ReleasePages(void* address) { return FromBool(VirtualFree(address, 0, MEM_RELEASE)); }

Result LockPages(void* address, uint64_t sizeBytes) {
  return FromBool(VirtualLock(address, sizeBytes));
}

Result UnlockPages(void* address, uint64_t sizeBytes) {
  return FromBool(VirtualUnlock(address, sizeBytes));
}

}  // namespace kiv::os
