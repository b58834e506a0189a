// Reads and writes files at their position or at an offset from the caller, and flushes them.
#include "kivsdu/directio.h"
#include "kivsdu/file.h"
#include "lease_guard.h"
#include "os/descriptors.h"
#include "os/transfers.h"
#include "report.h"

using namespace kiv;

namespace {

uint32_t WriteStatus(uint32_t error, uint32_t noSpace) {
  return error == noSpace ? KIV_ST_DISK_FULL : KIV_ST_FILE_WRITE;
}

// Compatibility: a write to a bad descriptor returns the status of a failed read. Hosts recognise
// closed descriptors by it.
uint32_t ReportNoFile(KivSdContext* ctx, uint32_t error) {
  return Report(ctx, KIV_ST_FILE_READ, error);
}

// No event is needed: the files are not open for overlapped I/O, so a transfer blocks.
KivSdNoWaitCb At(uint32_t offset) {
  KivSdNoWaitCb position = {};
  position.offsetLow = offset;
  return position;
}

}  // namespace

uint32_t KivSdFileRead(KivSdContext* ctx, uint32_t file, void* buffer, uint32_t length,
                       uint32_t* count) {
  RunLeaseGuard();
  if (buffer == nullptr || count == nullptr) return Report(ctx, KIV_ST_ARGUMENT);
  const os::ValueResult<uint32_t> read = os::ReadDescriptor(file, buffer, length);
  *count = read.value;
  return ReportOutcome(ctx, read, KIV_ST_FILE_READ);
}

uint32_t KivSdFilePRead(KivSdContext* ctx, uint32_t file, void* buffer, uint32_t offset,
                        uint32_t length, uint32_t* count) {
  RunLeaseGuard();
  if (buffer == nullptr || count == nullptr) return Report(ctx, KIV_ST_ARGUMENT);
  *count = 0;
  const os::ValueResult<void*> systemFile = os::SystemFile(file);
  if (!systemFile.ok) return ReportNoFile(ctx, systemFile.error);
  KivSdNoWaitCb position = At(offset);
  const os::ValueResult<uint32_t> read =
      os::ReadSystemFile(systemFile.value, buffer, length, &position);
  *count = read.value;
  return ReportOutcome(ctx, read, KIV_ST_FILE_READ);
}

uint32_t KivSdFileWrite(KivSdContext* ctx, uint32_t file, const void* buffer, uint32_t length,
                        uint32_t* count) {
  RunLeaseGuard();
  if (buffer == nullptr || count == nullptr) return Report(ctx, KIV_ST_ARGUMENT);
  const os::ValueResult<uint32_t> written = os::WriteDescriptor(file, buffer, length);
  *count = written.value;
  return ReportOutcome(ctx, written, WriteStatus(written.error, os::kErrnoNoSpace));
}

uint32_t KivSdFilePWrite(KivSdContext* ctx, uint32_t file, const void* buffer, uint32_t offset,
                         uint32_t length, uint32_t* count, uint32_t* osError) {
  RunLeaseGuard();
  uint32_t ignored = 0;
  uint32_t& error = osError != nullptr ? *osError : ignored;
  error = 0;
  if (buffer == nullptr || count == nullptr) return Report(ctx, KIV_ST_ARGUMENT);
  *count = 0;
  const os::ValueResult<void*> systemFile = os::SystemFile(file);
  error = systemFile.error;
  if (!systemFile.ok) return ReportNoFile(ctx, systemFile.error);
  KivSdNoWaitCb position = At(offset);
  const os::ValueResult<uint32_t> written =
      os::WriteSystemFile(systemFile.value, buffer, length, &position);
  *count = written.value;
  error = written.error;
  return ReportOutcome(ctx, written, WriteStatus(written.error, os::kErrorDiskFull));
}

uint32_t KivSdFileFlush(KivSdContext* ctx, uint32_t file) {
  RunLeaseGuard();
  return ReportOutcome(ctx, os::FlushDescriptor(file), KIV_ST_FILE_FLUSH);
}
