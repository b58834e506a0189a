// The machine's paging files and partitions, from /proc/swaps. `root` is the folder that the path
// begins with: empty, except in tests.
#ifndef KIV_OS_LNX_PAGING_SPACE_H
#define KIV_OS_LNX_PAGING_SPACE_H

#include "os/machine.h"
#include "os/os.h"

namespace kiv::os {

ValueResult<MemoryStatus> PagingSpace(const char* root);

// Stores the paths of the paging files and partitions as terminated strings, followed by an empty
// string. The value is their size in bytes. If they do not fit, stores those that do.
ValueResult<uint32_t> PagingPaths(const char* root, char* buffer, uint32_t sizeBytes);

}  // namespace kiv::os

#endif
