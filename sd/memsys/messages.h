// Messages to the host about shortage of memory: a warning near the limit, and the message that a
// request failed. The clock that counts allocations throttles them.
//
// The host may allocate in its callback: no lock may be held in a call of these functions. The
// state is written without a lock; a lost update only changes which message is sent.
#ifndef KIV_MEMSYS_MESSAGES_H
#define KIV_MEMSYS_MESSAGES_H

#include <cstdint>

#include "kivsdu/manager.h"
#include "memsys/relaxed.h"

namespace kiv {

struct MessageState {
  Relaxed<uint32_t> failedTotal;  // the bytes that the next message shows
  Relaxed<uint8_t> warningPending;
};
inline MessageState messageState;

void SetMessageFunction(AdMessageFunction function);

// Clears the throttle, any pending warning and the host's context.
void ResetMessages();

// Reports a failed request. The failed total becomes the bytes in use plus the requested bytes.
void ReportFailedRequest(uint64_t requestedBytes);

// Reports a failed request of plain mode: like ReportFailedRequest, if there is a callback.
void ReportPlainFailure(uint64_t requestedBytes);

// Reports a failed request. The caller has set the failed total.
void ReportOutOfMemory(uint64_t requestedBytes);

// Sends the pending warning. Always returns KIV_ST_OK, so that callers can tail-call it.
uint32_t SendWarning();

inline bool HasPendingWarning() { return messageState.warningPending != 0; }

// Sends the pending warning, if any. Called at the end of an operation that may have raised it.
inline void SendPendingWarning() {
  if (HasPendingWarning()) static_cast<void>(SendWarning());
}

}  // namespace kiv

#endif
