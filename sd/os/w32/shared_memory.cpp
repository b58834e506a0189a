#include "os/shared_memory.h"

#include "os/w32/win32.h"

namespace kiv::os {

static_assert(kViewWrite == FILE_MAP_WRITE && kViewRead == FILE_MAP_READ);
static_assert(kPagesReadOnly == PAGE_READONLY && kPagesReadWrite == PAGE_READWRITE);
static_assert(kPagesCommit == SEC_COMMIT && kPagesReserve == SEC_RESERVE);

const uint32_t kErrorNameExists = ERROR_ALREADY_EXISTS;

ValueResult<void*> MakeBlock(const char* name, uint32_t sizeBytes, uint32_t protection) {
  return FromPointer(
      CreateFileMappingA(INVALID_HANDLE_VALUE, nullptr, protection, 0, sizeBytes, name));
}

ValueResult<void*> OpenBlock(const char* name, uint32_t access) {
  return FromPointer(OpenFileMappingA(access, TRUE, name));
}

Result CloseBlock(void* block) { return FromBool(CloseHandle(block)); }

ValueResult<void*> MapBlock(void* block, uint32_t access, uint32_t sizeBytes) {
  return FromPointer(MapViewOfFile(block, access, 0, 0, sizeBytes));
}

Result UnmapBlock(void* view) { return FromBool(UnmapViewOfFile(view)); }

}  // namespace kiv::os
