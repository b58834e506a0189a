// Makes anonymous pipes; reads, writes and closes pipes of both kinds.
//
// Compatibility: a call that fails without an OS error is reported as a success, except for reads.
#include "kivsdu/pipe.h"
#include "kivsdu/settings.h"
#include "lease_guard.h"
#include "os/pipes.h"
#include "report.h"
#include "sdipcw32/report_pipe.h"

using namespace kiv;

int32_t KivSdNamedPipeIsInitialized(const KivHandle* pipe) {
  return pipe != nullptr && *pipe != nullptr ? 1 : 0;
}

uint32_t KivSdPipeCreate(KivSdContext* ctx, KivHandle* readEnd, KivHandle* writeEnd,
                         uint32_t bufferBytes) {
  RunLeaseGuard();
  if (readEnd == nullptr || writeEnd == nullptr) return Report(ctx, KIV_ST_ARGUMENT);
  const os::ValueResult<os::PipeEnds> made = os::MakePipe(bufferBytes);
  *readEnd = made.value.read;
  *writeEnd = made.value.write;
  return ReportUnlessErrorless(ctx, made, KIV_ST_PIPE_CREATE);
}

uint32_t KivSdPipeClose(KivSdContext* ctx, KivHandle* pipe) {
  if (pipe == nullptr) return Report(ctx, KIV_ST_ARGUMENT);
  return ReportUnlessErrorless(ctx, os::ClosePipe(*pipe), KIV_ST_PIPE_CLOSE);
}

// Compatibility: reading checks only the pointer for null, whereas writing checks the handle too. A
// read that fails without an OS error is reported as a failure.
uint32_t KivSdPipeRead(KivSdContext* ctx, KivHandle* pipe, void* buffer, uint32_t length,
                       uint32_t* count) {
  RunLeaseGuard();
  if (pipe == nullptr || buffer == nullptr || count == nullptr) {
    return Report(ctx, KIV_ST_ARGUMENT);
  }
  const os::ValueResult<uint32_t> read = os::ReadPipe(*pipe, buffer, length);
  *count = read.value;
  if (read.ok) return Report(ctx, KIV_ST_OK);
  if (read.error != os::kErrorPipeClosing) return Report(ctx, KIV_ST_PIPE_READ, read.error);
  *count = 0;
  return Report(ctx, KIV_ST_PIPE_CLOSED, read.error);
}

uint32_t KivSdPipeWrite(KivSdContext* ctx, KivHandle* pipe, const void* buffer, uint32_t length,
                        uint32_t* count) {
  RunLeaseGuard();
  if (KivSdNamedPipeIsInitialized(pipe) == 0 || buffer == nullptr || count == nullptr) {
    return Report(ctx, KIV_ST_ARGUMENT);
  }
  const os::ValueResult<uint32_t> written = os::WritePipe(*pipe, buffer, length);
  *count = written.ok ? written.value : 0;
  return ReportUnlessErrorless(ctx, written, KIV_ST_PIPE_WRITE);
}
