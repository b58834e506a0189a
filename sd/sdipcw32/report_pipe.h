// Reports the outcome of a call on a pipe.
#ifndef KIV_SDIPCW32_REPORT_PIPE_H
#define KIV_SDIPCW32_REPORT_PIPE_H

#include "report.h"

namespace kiv {

// Compatibility: a call that fails without an OS error is reported as a success. Some network
// redirectors fail in this way for pipes that exist.
template <typename Outcome>
uint32_t ReportUnlessErrorless(KivSdContext* ctx, const Outcome& outcome, uint32_t failure) {
  if (outcome.ok || outcome.error == 0) return Report(ctx, KIV_ST_OK);
  return Report(ctx, failure, outcome.error);
}

}  // namespace kiv

#endif
