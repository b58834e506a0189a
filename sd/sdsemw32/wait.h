// Reports the outcome of a wait on a kernel object, or of its creation.
#ifndef KIV_SDSEMW32_WAIT_H
#define KIV_SDSEMW32_WAIT_H

#include "os/kernel_objects.h"
#include "report.h"

namespace kiv {

// A time-out records the wait result 258, any other failure the OS error. Callers read 258 in the
// record as "timed out"; the last error does not matter then.
inline uint32_t ReportWait(KivSdContext* ctx, const os::Wait& waited, uint32_t timedOut,
                           uint32_t failed) {
  if (waited.result == os::kWaitSignalled) return Report(ctx, KIV_ST_OK);
  if (waited.result == os::kWaitTimedOut) return Report(ctx, timedOut, os::kWaitTimedOut);
  return Report(ctx, failed, waited.error);
}

// Stores the handle, or null on failure, and reports.
inline uint32_t ReportHandle(KivSdContext* ctx, const os::ValueResult<void*>& made,
                             KivHandle* handle, uint32_t failed) {
  *handle = made.ok ? made.value : nullptr;
  return ReportOutcome(ctx, made, failed);
}

}  // namespace kiv

#endif
