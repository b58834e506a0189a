// The one place that writes a context record.
#ifndef KIV_REPORT_H
#define KIV_REPORT_H

#include "kivsdu/context.h"
#include "kivsdu/status.h"

namespace kiv {

// Every exit of an operation goes through here: it stores the outcome, of a success as well, and
// returns the status.
inline uint32_t Report(KivSdContext* ctx, uint32_t status, uint32_t osError = 0) {
  if (ctx != nullptr) {
    ctx->status = status;
    ctx->osError = osError;
  }
  return status;
}

// The same for a platform call whose every failure has one status.
template <typename Outcome>
uint32_t ReportOutcome(KivSdContext* ctx, const Outcome& outcome, uint32_t failure) {
  return outcome.ok ? Report(ctx, KIV_ST_OK) : Report(ctx, failure, outcome.error);
}

}  // namespace kiv

#endif
