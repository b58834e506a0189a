// What the host is told about shortage of memory: the warning near the limit and the message that
// a request failed, throttled by a clock that counts allocations.
//
// The host allocates in its callback: nothing here may be called with a lock held. The state is
// written without one; a lost update only changes which message gets through.
#ifndef KIV_MEMSYS_MESSAGES_H
#define KIV_MEMSYS_MESSAGES_H

#include <cstdint>

#include "kivsdu/manager.h"
#include "memsys/relaxed.h"

namespace kiv {

// Counts the allocations of thread heaps. Away from what is read alone: each allocation writes it.
struct alignas(64) AllocationClock {
  Relaxed<uint64_t> ticks;
};
extern AllocationClock allocationClock;

struct MessageState {
  Relaxed<uint32_t> failedTotal;  // bytes in the last message
  Relaxed<uint8_t> warningPending;
};
extern MessageState messageState;

void SetMessageFunction(AdMessageFunction function);

// Forgets what was sent, and the host's context.
void ResetMessages();

// A request failed: sends the message, the failed total being what is in use with the request.
void ReportFailedRequest(uint64_t requestedBytes);

// The same in plain mode.
void ReportPlainFailure(uint64_t requestedBytes);

// The same where the failed total has been set already.
void ReportOutOfMemory(uint64_t requestedBytes);

void SendWarning();

// Where an operation ends that may have crossed the warning's mark.
inline void SendPendingWarning() {
  if (messageState.warningPending != 0) SendWarning();
}

}  // namespace kiv

#endif
