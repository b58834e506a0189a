// Descriptors as files for transfers.h. A handle of the binding has at most 31 bits; a descriptor
// gets a bit above them, so that neither can be taken for the other.
#ifndef KIV_OS_LNX_SYSTEM_FILE_H
#define KIV_OS_LNX_SYSTEM_FILE_H

#include <cstdint>

namespace kiv::os {

constexpr uint32_t kDescriptorShift = 32;

inline void* SystemFileOf(int descriptor) {
  const auto number = static_cast<uint32_t>(descriptor);
  return reinterpret_cast<void*>(uintptr_t{1} << kDescriptorShift | number);
}

// -1 if the file is not a descriptor.
inline int DescriptorOf(const void* file) {
  const auto value = reinterpret_cast<uintptr_t>(file);
  return value >> kDescriptorShift == 1 ? static_cast<int>(static_cast<uint32_t>(value)) : -1;
}

}  // namespace kiv::os

#endif
