#include "os/file_names.h"

#include <io.h>
#include <process.h>

#include <cerrno>
#include <cstdio>

#include "parameter_guard.h"

namespace kiv::os {

bool IsAccessible(const char* path, uint32_t mode) {
  const ParameterGuard guard;
  return _access(path, static_cast<int>(mode)) == 0;
}

Result RemoveFileByName(const char* path) {
  const ParameterGuard guard;
  if (_unlink(path) == 0) return {true, 0};
  return {false, static_cast<uint32_t>(errno)};
}

ValueResult<char*> MakeTemporaryName(const char* prefix) {
  const ParameterGuard guard;
  char* name = _tempnam(nullptr, prefix);
  if (name != nullptr) return {true, 0, name};
  return {false, static_cast<uint32_t>(errno), nullptr};
}

int32_t RuntimeProcessId() { return _getpid(); }

}  // namespace kiv::os
