#include "os/descriptors.h"

#include <fcntl.h>
#include <io.h>
#include <share.h>

#include <cerrno>
#include <cstdio>

#include "os/w32/win32.h"

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

// The runtime's -1 becomes a value with all bits set.
ValueResult<uint32_t> FromNumber(int32_t number) {
  const auto value = static_cast<uint32_t>(number);
  if (number != kFailed) return {true, 0, value};
  return {false, RuntimeError(), value};
}

// No event: a file that was opened for transfers one at a time is waited for.
OVERLAPPED At(uint32_t offset) {
  OVERLAPPED position = {};
  position.Offset = offset;
  return position;
}

}  // namespace

const uint32_t kErrnoBadDescriptor = EBADF;
const uint32_t kErrnoNoSpace = ENOSPC;
const uint32_t kErrorDiskFull = ERROR_DISK_FULL;

ValueResult<uint32_t> CreateDescriptor(const char* path, uint32_t permissions) {
  return FromNumber(_creat(path, static_cast<int>(permissions)));
}

ValueResult<uint32_t> OpenDescriptor(const char* path, uint32_t openFlags, uint32_t permissions) {
  return FromNumber(_open(path, static_cast<int>(openFlags), static_cast<int>(permissions)));
}

ValueResult<SharedDescriptor> OpenSharedDescriptor(const char* path, uint32_t openFlags,
                                                   uint32_t shareFlags, uint32_t permissions) {
  // A failure that the runtime finds by itself leaves the last error alone.
  SetLastError(ERROR_SUCCESS);
  const int file = _sopen(path, static_cast<int>(openFlags), static_cast<int>(shareFlags),
                          static_cast<int>(permissions));
  if (file != kFailed) return {true, 0, {static_cast<uint32_t>(file), false}};
  const bool heldByAnother = GetLastError() == ERROR_SHARING_VIOLATION;
  return {false, RuntimeError(), {kNoDescriptor, heldByAnother}};
}

Result CloseDescriptor(uint32_t file) { return FromZero(_close(static_cast<int>(file))); }

ValueResult<uint32_t> ReadDescriptor(uint32_t file, void* buffer, uint32_t length) {
  return FromNumber(_read(static_cast<int>(file), buffer, length));
}

ValueResult<uint32_t> WriteDescriptor(uint32_t file, const void* buffer, uint32_t length) {
  return FromNumber(_write(static_cast<int>(file), buffer, length));
}

Result FlushDescriptor(uint32_t file) { return FromZero(_commit(static_cast<int>(file))); }

ValueResult<uint32_t> SeekDescriptor(uint32_t file, int32_t offset, uint32_t origin) {
  return FromNumber(_lseek(static_cast<int>(file), offset, static_cast<int>(origin)));
}

ValueResult<uint64_t> SeekDescriptor64(uint32_t file, int64_t offset, uint32_t origin) {
  const int64_t position = _lseeki64(static_cast<int>(file), offset, static_cast<int>(origin));
  const auto value = static_cast<uint64_t>(position);
  if (position != kFailed) return {true, 0, value};
  return {false, RuntimeError(), value};
}

ValueResult<uint32_t> TellDescriptor(uint32_t file) {
  return FromNumber(_tell(static_cast<int>(file)));
}

ValueResult<uint32_t> DescriptorLength(uint32_t file) {
  return FromNumber(_filelength(static_cast<int>(file)));
}

int32_t IsAtEnd(uint32_t file) { return _eof(static_cast<int>(file)); }

Result ResizeDescriptor(uint32_t file, int32_t length) {
  return FromZero(_chsize(static_cast<int>(file), length));
}

ValueResult<void*> SystemFile(uint32_t file) {
  const intptr_t handle = _get_osfhandle(static_cast<int>(file));
  if (handle == kFailed) return {false, RuntimeError(), nullptr};
  return {true, 0, reinterpret_cast<void*>(handle)};  // NOLINT(performance-no-int-to-ptr)
}

ValueResult<uint32_t> ReadAt(void* systemFile, uint32_t offset, void* buffer, uint32_t length) {
  OVERLAPPED position = At(offset);
  DWORD count = 0;
  const Result result = FromBool(ReadFile(systemFile, buffer, length, &count, &position));
  return {result.ok, result.error, count};
}

ValueResult<uint32_t> WriteAt(void* systemFile, uint32_t offset, const void* buffer,
                              uint32_t length) {
  OVERLAPPED position = At(offset);
  DWORD count = 0;
  const Result result = FromBool(WriteFile(systemFile, buffer, length, &count, &position));
  return {result.ok, result.error, count};
}

}  // namespace kiv::os
