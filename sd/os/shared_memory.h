// Named memory that processes share, backed by the paging file.
#ifndef KIV_OS_SHARED_MEMORY_H
#define KIV_OS_SHARED_MEMORY_H

#include "os/os.h"

namespace kiv::os {

// Access of a view, and protection of the pages of a block that is made. They have the same two
// numbers with opposite meanings.
constexpr uint32_t kViewWrite = 2;
constexpr uint32_t kViewRead = 4;
constexpr uint32_t kPagesReadOnly = 2;
constexpr uint32_t kPagesReadWrite = 4;

constexpr uint32_t kPagesCommit = 0x8000000;
constexpr uint32_t kPagesReserve = 0x4000000;

// OS error of a block that cannot be made because of its name.
extern const uint32_t kErrorNameExists;

// Gives the block that has the name already, if there is one, as its own success.
ValueResult<void*> MakeBlock(const char* name, uint32_t sizeBytes, uint32_t protection);
// A handle that child processes inherit.
ValueResult<void*> OpenBlock(const char* name, uint32_t access);
Result CloseBlock(void* block);

// From its start; a size of 0 maps all of it.
ValueResult<void*> MapBlock(void* block, uint32_t access, uint32_t sizeBytes);
Result UnmapBlock(void* view);

}  // namespace kiv::os

#endif
