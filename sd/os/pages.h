// Whole read-write pages, straight from the system.
#ifndef KIV_OS_PAGES_H
#define KIV_OS_PAGES_H

#include "os/os.h"

namespace kiv::os {

// OS error if LockPages would exceed the process's quota of locked memory.
extern const uint32_t kErrorLockQuota;

// Returns zeroed pages, aligned to a page. A size of 0 fails.
ValueResult<void*> CommitPages(uint64_t sizeBytes);

// Releases all pages of the CommitPages call that returned this address. Any other address is an
// error, and of two threads that release one address, one gets it.
Result ReleasePages(void* address);

// LockPages keeps the pages in physical memory until UnlockPages.
Result LockPages(void* address, uint64_t sizeBytes);
Result UnlockPages(void* address, uint64_t sizeBytes);

}  // namespace kiv::os

#endif
