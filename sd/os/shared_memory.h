// Named memory that processes share, backed by the paging file.
#ifndef KIV_OS_SHARED_MEMORY_H
#define KIV_OS_SHARED_MEMORY_H

#include "os/os.h"

namespace kiv::os {

// Access of a view, and page protection of a new block. The values 2 and 4 have opposite meanings
// in these two groups.
constexpr uint32_t kViewWrite = 2;
constexpr uint32_t kViewRead = 4;
constexpr uint32_t kPagesReadOnly = 2;
constexpr uint32_t kPagesReadWrite = 4;

constexpr uint32_t kPagesCommit = 0x8000000;
constexpr uint32_t kPagesReserve = 0x4000000;

// OS error if a block cannot be made because its name is in use.
extern const uint32_t kErrorNameExists;

// If a block of this name exists, succeeds and returns a handle of that block.
ValueResult<void*> MakeBlock(const char* name, uint32_t sizeBytes, uint32_t protection);
// Child processes inherit the handle.
ValueResult<void*> OpenBlock(const char* name, uint32_t access);
Result CloseBlock(void* block);

// Maps the block from its start; a size of 0 maps all of it.
ValueResult<void*> MapBlock(void* block, uint32_t access, uint32_t sizeBytes);
Result UnmapBlock(void* view);

}  // namespace kiv::os

#endif
