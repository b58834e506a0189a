// Reporting what became of a call on a pipe.
#ifndef KIV_SDIPCW32_REPORT_PIPE_H
#define KIV_SDIPCW32_REPORT_PIPE_H

#include "report.h"

namespace kiv {

// Kept: a call that fails and leaves no error counts as a success; some of the system's
// redirectors answer so for pipes that are there.
template <typename Outcome>
uint32_t ReportUnlessErrorless(KivSdContext* ctx, const Outcome& outcome, uint32_t failure) {
  if (outcome.ok || outcome.error == 0) return Report(ctx, KIV_ST_OK);
  return Report(ctx, failure, outcome.error);
}

}  // namespace kiv

#endif
