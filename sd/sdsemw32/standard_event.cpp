// Standard events: set signals the event and reset clears the signal. Their failure statuses are
// those of the gate operations that make the corresponding system call: KIV_ST_EVENT_CLEAR for set
// and KIV_ST_EVENT_SET for reset.
//
// Compatibility: no pointer is checked, and a failed create leaves the variable unchanged. Callers
// rely on both.
#include "kivsdu/event.h"
#include "sdsemw32/wait.h"

using namespace kiv;

uint32_t KivSdStdEventCreate(KivSdContext* ctx, KivHandle* event) {
  const os::ValueResult<void*> made = os::MakeAutoEvent(false);
  if (made.ok) *event = made.value;
  return ReportOutcome(ctx, made, KIV_ST_EVENT_CREATE);
}

uint32_t KivSdStdEventClose(KivSdContext* ctx, KivHandle* event) {
  return ReportOutcome(ctx, os::CloseObject(*event), KIV_ST_EVENT_CLOSE);
}

uint32_t KivSdStdEventSet(KivSdContext* ctx, KivHandle* event) {
  return ReportOutcome(ctx, os::SignalEvent(*event), KIV_ST_EVENT_CLEAR);
}

uint32_t KivSdStdEventReset(KivSdContext* ctx, KivHandle* event) {
  return ReportOutcome(ctx, os::UnsignalEvent(*event), KIV_ST_EVENT_SET);
}

uint32_t KivSdStdEventWait(KivSdContext* ctx, KivHandle* event) {
  return ReportWait(ctx, os::WaitOne(*event, os::kWaitForEver), KIV_ST_EVENT_TIMEOUT,
                    KIV_ST_EVENT_WAIT);
}

uint32_t KivSdStdEventTimedWait(KivSdContext* ctx, KivHandle* event, int32_t timeoutMs) {
  const uint32_t time = timeoutMs < 0 ? os::kWaitForEver : static_cast<uint32_t>(timeoutMs);
  return ReportWait(ctx, os::WaitOne(*event, time), KIV_ST_EVENT_TIMEOUT, KIV_ST_EVENT_WAIT);
}
