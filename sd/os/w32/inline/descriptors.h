// Windows: descriptors of the Microsoft C runtime.
#ifndef KIV_OS_W32_INLINE_DESCRIPTORS_H
#define KIV_OS_W32_INLINE_DESCRIPTORS_H

#include <io.h>

#include <cerrno>
#include <cstdint>

#include "os/os.h"
#include "parameter_guard.h"

namespace kiv::os {

// The runtime returns -1 on failure, which becomes a value with all bits set.
inline ValueResult<uint32_t> FromRuntimeNumber(int32_t number) {
  const auto value = static_cast<uint32_t>(number);
  if (number != -1) return {true, 0, value};
  return {false, static_cast<uint32_t>(errno), value};
}

inline ValueResult<uint32_t> ReadDescriptor(uint32_t file, void* buffer, uint32_t length) {
  const ParameterGuard guard;
  return FromRuntimeNumber(_read(static_cast<int>(file), buffer, length));
}

inline ValueResult<uint32_t> WriteDescriptor(uint32_t file, const void* buffer, uint32_t length) {
  const ParameterGuard guard;
  return FromRuntimeNumber(_write(static_cast<int>(file), buffer, length));
}

inline ValueResult<uint32_t> SeekDescriptor(uint32_t file, int32_t offset, uint32_t origin) {
  const ParameterGuard guard;
  return FromRuntimeNumber(_lseek(static_cast<int>(file), offset, static_cast<int>(origin)));
}

inline ValueResult<uint64_t> SeekDescriptor64(uint32_t file, int64_t offset, uint32_t origin) {
  const ParameterGuard guard;
  const int64_t position = _lseeki64(static_cast<int>(file), offset, static_cast<int>(origin));
  const auto value = static_cast<uint64_t>(position);
  if (position != -1) return {true, 0, value};
  return {false, static_cast<uint32_t>(errno), value};
}

inline ValueResult<void*> SystemFile(uint32_t file) {
  const ParameterGuard guard;
  const intptr_t handle = _get_osfhandle(static_cast<int>(file));
  if (handle == -1) return {false, static_cast<uint32_t>(errno), nullptr};
  return {true, 0, reinterpret_cast<void*>(handle)};  // NOLINT(performance-no-int-to-ptr)
}

}  // namespace kiv::os

#endif
