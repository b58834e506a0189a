// Whole pages, read-write, straight from the system.
#ifndef KIV_OS_PAGES_H
#define KIV_OS_PAGES_H

#include "os/os.h"

namespace kiv::os {

// OS error of a lock that the process's quota of locked memory refuses.
extern const uint32_t kErrorLockQuota;

// Fresh zeroed pages, or a failure; a size of 0 fails.
ValueResult<void*> CommitPages(uint64_t sizeBytes);

// Gives back the whole of what CommitPages made at this address; any other address fails.
Result ReleasePages(void* address);

// Keeps pages in memory, and lets them go again.
Result LockPages(void* address, uint64_t sizeBytes);
Result UnlockPages(void* address, uint64_t sizeBytes);

}  // namespace kiv::os

#endif
