// Reads lines.
//
// Reads as many bytes as the buffer can hold, then moves the position back to just behind the first
// line feed. Calls the exported operations for both, so that the host's lease guard runs for each.
#include <cstring>

#include "kivsdu/file.h"
#include "lease_guard.h"
#include "os/descriptors.h"
#include "report.h"

using namespace kiv;

namespace {

constexpr char kLineFeed = 10;

// The length of the first line, its line feed included. 0 without a line feed.
uint32_t LineLength(const char* bytes, uint32_t count) {
  const void* end = std::memchr(bytes, kLineFeed, count);
  if (end == nullptr) return 0;
  return static_cast<uint32_t>(static_cast<const char*>(end) - bytes) + 1;
}

bool IsNegative(uint32_t count) { return static_cast<int32_t>(count) < 0; }

// Terminates the buffer behind its first line and moves the file's position there. `start` is the
// file position of the buffer's first byte.
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
  // A size of 0 has no room for a terminator, and sizeBytes - 1 below would wrap around.
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
