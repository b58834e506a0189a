// The only code that writes outcomes into context records.
#ifndef KIV_REPORT_H
#define KIV_REPORT_H

#include "kivsdu/context.h"
#include "kivsdu/status.h"

namespace kiv {

// Stores an operation's outcome, success included, and returns the status. Every exit of an
// operation is a call of Report.
inline uint32_t Report(KivSdContext* ctx, uint32_t status, uint32_t osError = 0) {
  if (ctx != nullptr) {
    ctx->status = status;
    ctx->osError = osError;
  }
  return status;
}

// Reports the outcome of a platform call whose failures all have one status.
template <typename Outcome>
uint32_t ReportOutcome(KivSdContext* ctx, const Outcome& outcome, uint32_t failure) {
  return outcome.ok ? Report(ctx, KIV_ST_OK) : Report(ctx, failure, outcome.error);
}

}  // namespace kiv

#endif
