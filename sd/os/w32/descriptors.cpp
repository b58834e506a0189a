#include "os/descriptors.h"

#include <fcntl.h>
#include <io.h>
#include <share.h>

#include <cerrno>
#include <cstdio>

#include "os/w32/win32.h"
#include "parameter_guard.h"

namespace kiv::os {
namespace {

static_assert(kOpenReadWrite == _O_RDWR);
static_assert(kOpenOnlyIfNew == _O_EXCL);
static_assert(kOpenBinary == _O_BINARY);
static_assert(kShareNothing == _SH_DENYRW);
static_assert(kShareEverything == _SH_DENYNO);
static_assert(kFromStart == SEEK_SET);

constexpr intptr_t kFailed = -1;

uint32_t RuntimeError() { return static_cast<uint32_t>(errno); }

Result FromZero(int outcome) {
  if (outcome == 0) return {true, 0};
  return {false, RuntimeError()};
}

}  // namespace

const uint32_t kErrnoBadDescriptor = EBADF;
const uint32_t kErrnoNoSpace = ENOSPC;
const uint32_t kErrorDiskFull = ERROR_DISK_FULL;

ValueResult<uint32_t> CreateDescriptor(const char* path, uint32_t permissions) {
  const ParameterGuard guard;
  return FromRuntimeNumber(_creat(path, static_cast<int>(permissions)));
}

ValueResult<uint32_t> OpenDescriptor(const char* path, uint32_t openFlags, uint32_t permissions) {
  const ParameterGuard guard;
  return FromRuntimeNumber(_open(path, static_cast<int>(openFlags), static_cast<int>(permissions)));
}

ValueResult<SharedDescriptor> OpenSharedDescriptor(const char* path, uint32_t openFlags,
                                                   uint32_t shareFlags, uint32_t permissions) {
  const ParameterGuard guard;
  // The runtime can fail without a system call, and then leaves the last error as it was.
  SetLastError(ERROR_SUCCESS);
  const int file = _sopen(path, static_cast<int>(openFlags), static_cast<int>(shareFlags),
                          static_cast<int>(permissions));
  if (file != kFailed) return {true, 0, {static_cast<uint32_t>(file), false}};
  const bool heldByAnother = GetLastError() == ERROR_SHARING_VIOLATION;
  return {false, RuntimeError(), {kNoDescriptor, heldByAnother}};
}

Result CloseDescriptor(uint32_t file) {
  const ParameterGuard guard;
  return FromZero(_close(static_cast<int>(file)));
}

Result FlushDescriptor(uint32_t file) {
  const ParameterGuard guard;
  return FromZero(_commit(static_cast<int>(file)));
}

ValueResult<uint32_t> TellDescriptor(uint32_t file) {
  const ParameterGuard guard;
  return FromRuntimeNumber(_tell(static_cast<int>(file)));
}

ValueResult<uint32_t> DescriptorLength(uint32_t file) {
  const ParameterGuard guard;
  return FromRuntimeNumber(_filelength(static_cast<int>(file)));
}

int32_t IsAtEnd(uint32_t file) {
  const ParameterGuard guard;
  return _eof(static_cast<int>(file));
}

Result ResizeDescriptor(uint32_t file, int32_t length) {
  const ParameterGuard guard;
  return FromZero(_chsize(static_cast<int>(file), length));
}

}  // namespace kiv::os
