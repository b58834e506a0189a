// Positions and lengths of files.
#include "kivsdu/file.h"
#include "lease_guard.h"
#include "os/descriptors.h"
#include "report.h"

using namespace kiv;

namespace {

template <typename Number>
void Store(Number* output, Number value) {
  if (output != nullptr) *output = value;
}

}  // namespace

uint32_t KivSdFileLSeek(KivSdContext* ctx, uint32_t file, int32_t offset, uint32_t origin,
                        uint32_t* position) {
  RunLeaseGuard();
  const os::ValueResult<uint32_t> moved = os::SeekDescriptor(file, offset, origin);
  Store(position, moved.value);
  return ReportOutcome(ctx, moved, KIV_ST_FILE_SEEK);
}

uint32_t KivSdFileLSeek64(KivSdContext* ctx, uint32_t file, int64_t offset, uint32_t origin,
                          uint64_t* position) {
  RunLeaseGuard();
  const os::ValueResult<uint64_t> moved = os::SeekDescriptor64(file, offset, origin);
  Store(position, moved.value);
  return ReportOutcome(ctx, moved, KIV_ST_FILE_SEEK);
}

uint32_t KivSdFileTell(KivSdContext* ctx, uint32_t file, uint32_t* position) {
  RunLeaseGuard();
  if (position == nullptr) return Report(ctx, KIV_ST_ARGUMENT);
  const os::ValueResult<uint32_t> told = os::TellDescriptor(file);
  *position = told.value;
  return ReportOutcome(ctx, told, KIV_ST_FILE_TELL);
}

uint32_t KivSdFileLength(KivSdContext* ctx, uint32_t file, uint32_t* length) {
  RunLeaseGuard();
  if (length == nullptr) return Report(ctx, KIV_ST_ARGUMENT);
  const os::ValueResult<uint32_t> measured = os::DescriptorLength(file);
  *length = measured.value;
  return ReportOutcome(ctx, measured, KIV_ST_FILE_LENGTH);
}

// Compatibility: succeeds even if the runtime fails. The runtime's -1 is then stored as 255.
uint32_t KivSdFileEof(KivSdContext* ctx, uint32_t file, uint8_t* atEnd) {
  RunLeaseGuard();
  if (atEnd == nullptr) return Report(ctx, KIV_ST_ARGUMENT);
  *atEnd = static_cast<uint8_t>(os::IsAtEnd(file));
  return Report(ctx, KIV_ST_OK);
}

// Compatibility: the length has 64 bits, but only its lower 32 bits reach the runtime.
uint32_t KivSdFileSetEndOfFile(KivSdContext* ctx, uint64_t file, uint64_t length,
                               uint32_t* newLength, uint32_t* osError) {
  RunLeaseGuard();
  const os::Result resized =
      os::ResizeDescriptor(static_cast<uint32_t>(file), static_cast<int32_t>(length));
  Store(newLength, resized.ok ? static_cast<uint32_t>(length) : 0);
  Store(osError, resized.error);
  return ReportOutcome(
      ctx, resized, resized.error == os::kErrnoNoSpace ? KIV_ST_DISK_FULL : KIV_ST_DIRECT_SET_END);
}
