// Linux: these primitives do too much to be inline.
#ifndef KIV_OS_LNX_INLINE_DESCRIPTORS_H
#define KIV_OS_LNX_INLINE_DESCRIPTORS_H

#include <cstdint>

#include "os/os.h"

namespace kiv::os {

ValueResult<uint32_t> ReadDescriptor(uint32_t file, void* buffer, uint32_t length);
ValueResult<uint32_t> WriteDescriptor(uint32_t file, const void* buffer, uint32_t length);
ValueResult<uint32_t> SeekDescriptor(uint32_t file, int32_t offset, uint32_t origin);
ValueResult<uint64_t> SeekDescriptor64(uint32_t file, int64_t offset, uint32_t origin);

// The value cannot be mistaken for a handle of the binding: it has a bit above the low 32.
ValueResult<void*> SystemFile(uint32_t file);

}  // namespace kiv::os

#endif
