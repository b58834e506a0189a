// The machine-wide settings store.
#ifndef KIV_OS_REGISTRY_H
#define KIV_OS_REGISTRY_H

#include "os/os.h"

namespace kiv::os {

// A value as it was read: its type and the bytes it has.
struct RegistryValue {
  uint32_t type;
  uint32_t sizeBytes;
};

// Type of a value that is a list of terminated strings.
extern const uint32_t kRegistryMultiString;

// Opens a machine-wide key for reading.
ValueResult<void*> OpenRegistryKey(const char* path);

// The bytes of the key's largest value.
ValueResult<uint32_t> LargestRegistryValue(void* key);

// Reads a value; fails when it does not fit. A string in it need not be terminated.
ValueResult<RegistryValue> ReadRegistryValue(void* key, const char* name, void* buffer,
                                             uint32_t sizeBytes);

Result CloseRegistryKey(void* key);

}  // namespace kiv::os

#endif
