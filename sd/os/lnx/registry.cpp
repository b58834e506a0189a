// Linux has no registry. Its one key is that of the paging files, and the key's one value is the
// list of their paths. A handle is a constant: the kernel makes the list anew at each reading.
#include "os/registry.h"

#include <cerrno>
#include <cstring>

#include "os/lnx/paging_space.h"

namespace kiv::os {
namespace {

constexpr char kPagingKey[] =
    "SYSTEM\\CurrentControlSet\\Control\\Session Manager\\Memory Management";
constexpr char kPagingValue[] = "PagingFiles";
constexpr char kRoot[] = "";

void* KeyHandle() { return const_cast<char*>(kPagingKey); }

}  // namespace

const uint32_t kRegistryMultiString = 7;  // the number of the Windows interface

ValueResult<void*> OpenRegistryKey(const char* path) {
  if (std::strcmp(path, kPagingKey) != 0) return {false, ENOENT, nullptr};
  return {true, 0, KeyHandle()};
}

ValueResult<uint32_t> LargestRegistryValue(void* key) {
  if (key != KeyHandle()) return {false, EBADF, 0};
  return PagingPaths(kRoot, nullptr, 0);
}

ValueResult<RegistryValue> ReadRegistryValue(void* key, const char* name, void* buffer,
                                             uint32_t sizeBytes) {
  if (key != KeyHandle()) return {false, EBADF, {}};
  if (std::strcmp(name, kPagingValue) != 0) return {false, ENOENT, {}};
  const ValueResult<uint32_t> size = PagingPaths(kRoot, static_cast<char*>(buffer), sizeBytes);
  if (!size.ok) return {false, size.error, {}};
  if (size.value > sizeBytes) return {false, ERANGE, {kRegistryMultiString, size.value}};
  return {true, 0, {kRegistryMultiString, size.value}};
}

Result CloseRegistryKey(void* key) {
  if (key != KeyHandle()) return {false, EBADF};
  return {true, 0};
}

}  // namespace kiv::os
