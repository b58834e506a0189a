// The system's registry of settings.
#ifndef KIV_OS_REGISTRY_H
#define KIV_OS_REGISTRY_H

#include "os/os.h"

namespace kiv::os {

// Type and size of a value that was read.
struct RegistryValue {
  uint32_t type;
  uint32_t sizeBytes;
};

// The type of a value that is a list of terminated strings.
extern const uint32_t kRegistryMultiString;

// Opens a machine-wide key for reading.
ValueResult<void*> OpenRegistryKey(const char* path);

// The size of the key's largest value, in bytes.
ValueResult<uint32_t> LargestRegistryValue(void* key);

// Reads a value into the buffer; fails if it does not fit. A string may lack its terminator.
ValueResult<RegistryValue> ReadRegistryValue(void* key, const char* name, void* buffer,
                                             uint32_t sizeBytes);

Result CloseRegistryKey(void* key);

}  // namespace kiv::os

#endif
