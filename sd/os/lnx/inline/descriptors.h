// Linux: descriptors of the C library.
#ifndef KIV_OS_LNX_INLINE_DESCRIPTORS_H
#define KIV_OS_LNX_INLINE_DESCRIPTORS_H

#include <unistd.h>

#include <cerrno>
#include <cstdint>

#include "os/os.h"

namespace kiv::os {

// The C library returns -1 on failure, which becomes a value with all bits set.
template <typename Value>
ValueResult<Value> FromRuntimeNumber(int64_t number) {
  const auto value = static_cast<Value>(number);
  if (number != -1) return {true, 0, value};
  return {false, static_cast<uint32_t>(errno), value};
}

inline ValueResult<uint32_t> ReadDescriptor(uint32_t file, void* buffer, uint32_t length) {
  return FromRuntimeNumber<uint32_t>(read(static_cast<int>(file), buffer, length));
}

inline ValueResult<uint32_t> WriteDescriptor(uint32_t file, const void* buffer, uint32_t length) {
  return FromRuntimeNumber<uint32_t>(write(static_cast<int>(file), buffer, length));
}

inline ValueResult<uint32_t> SeekDescriptor(uint32_t file, int32_t offset, uint32_t origin) {
  return FromRuntimeNumber<uint32_t>(
      lseek(static_cast<int>(file), offset, static_cast<int>(origin)));
}

inline ValueResult<uint64_t> SeekDescriptor64(uint32_t file, int64_t offset, uint32_t origin) {
  return FromRuntimeNumber<uint64_t>(
      lseek(static_cast<int>(file), offset, static_cast<int>(origin)));
}

inline ValueResult<void*> SystemFile(uint32_t file) {
  return {true, 0, reinterpret_cast<void*>(static_cast<intptr_t>(file))};
}

}  // namespace kiv::os

#endif
