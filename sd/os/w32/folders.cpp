#include "os/folders.h"

#include <direct.h>
#include <io.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstdio>

#include "parameter_guard.h"

namespace kiv::os {
namespace {

Result FromZero(int outcome) {
  if (outcome == 0) return {true, 0};
  return {false, static_cast<uint32_t>(errno)};
}

}  // namespace

const uint32_t kErrnoMissing = ENOENT;

Result ChangeFolder(const char* path) {
  const ParameterGuard guard;
  return FromZero(_chdir(path));
}

Result MakeFolder(const char* path) {
  const ParameterGuard guard;
  return FromZero(_mkdir(path));
}

Result RemoveFolder(const char* path) {
  const ParameterGuard guard;
  return FromZero(_rmdir(path));
}

Result MakeWritable(const char* path) {
  const ParameterGuard guard;
  return FromZero(_chmod(path, _S_IREAD | _S_IWRITE));
}

}  // namespace kiv::os
