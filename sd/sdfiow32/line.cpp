// Reading lines.
//
// As many bytes are read as the buffer has room for, and the position is moved back to behind the
// first line feed among them. Reading and moving are the exported operations, so that the host's
// lease guard sees each of them.
#include <cstring>

#include "kivsdu/file.h"
#include "lease_guard.h"
#include "os/descriptors.h"
#include "report.h"

using namespace kiv;

namespace {

constexpr char kLineFeed = 10;

// How many of the bytes belong to the first line, its line feed included; 0 when none is there.
uint32_t LineLength(const char* bytes, uint32_t count) {
  const void* end = std::memchr(bytes, kLineFeed, count);
  if (end == nullptr) return 0;
  return static_cast<uint32_t>(static_cast<const char*>(end) - bytes) + 1;
}

bool IsNegative(uint32_t count) { return static_cast<int32_t>(count) < 0; }

// Ends the buffer behind its first line and puts the position there, counted from `start`.
uint32_t CutAtLineFeed(KivSdContext* ctx, uint32_t file, uint32_t start, char* buffer,
                       uint32_t count) {
  const uint32_t length = LineLength(buffer, count);
  if (length == 0) return Report(ctx, KIV_ST_OK);
  KivSdContext moved = {};
  if (KivSdFileLSeek(&moved, file, static_cast<int32_t>(start + length), os::kFromStart, nullptr) !=
      KIV_ST_OK) {
    return Report(ctx, KIV_ST_FILE_GETS, moved.osError);
  }
  buffer[length] = '\0';
  return Report(ctx, KIV_ST_OK);
}

}  // namespace

uint32_t KivSdFileGets(KivSdContext* ctx, uint32_t file, char* buffer, uint32_t sizeBytes) {
  RunLeaseGuard();
  // Without room for a terminator there is no line, and no number of bytes to read.
  if (buffer == nullptr || sizeBytes == 0) return Report(ctx, KIV_ST_ARGUMENT);
  if (sizeBytes == 1) {
    buffer[0] = '\0';
    return Report(ctx, KIV_ST_OK);
  }
  const os::ValueResult<uint32_t> start = os::TellDescriptor(file);
  if (!start.ok) return Report(ctx, KIV_ST_FILE_GETS, start.error);

  KivSdContext read = {};
  uint32_t count = 0;
  if (KivSdFileRead(&read, file, buffer, sizeBytes - 1, &count) != KIV_ST_OK || IsNegative(count)) {
    return Report(ctx, KIV_ST_FILE_GETS, read.osError);
  }
  if (count == 0) return Report(ctx, KIV_ST_FILE_END);
  buffer[count] = '\0';
  return CutAtLineFeed(ctx, file, start.value, buffer, count);
}
