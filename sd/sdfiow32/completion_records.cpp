// Direct I/O: creates and closes the events of arrays of completion records.
//
// Both loops go on after a failure, so that the events of the other records are still made or
// closed. They report the last failure.
#include "kivsdu/directio.h"
#include "lease_guard.h"
#include "os/kernel_objects.h"
#include "report.h"

using namespace kiv;

// Compatibility: an event field is overwritten without being closed. Callers pass uninitialised
// arrays, whose fields hold no valid handles.
uint32_t KivSdDirectIONoWaitCbsInit(KivSdContext* ctx, KivSdNoWaitCb* records, uint32_t count) {
  RunLeaseGuard();
  if (records == nullptr && count != 0) return Report(ctx, KIV_ST_ARGUMENT);
  os::Result outcome = {true, 0};
  for (uint32_t i = 0; i < count; ++i) {
    const os::ValueResult<void*> made = os::MakeManualEvent();
    records[i].event = made.value;
    if (!made.ok) outcome = {false, made.error};
  }
  return ReportOutcome(ctx, outcome, KIV_ST_EVENT_CREATE);
}

// Compatibility: the fields keep the closed handles. Callers drop the array or initialise it again.
uint32_t KivSdDirectIONoWaitCbsTerm(KivSdContext* ctx, KivSdNoWaitCb* records, uint32_t count) {
  if (records == nullptr && count != 0) return Report(ctx, KIV_ST_ARGUMENT);
  os::Result outcome = {true, 0};
  for (uint32_t i = 0; i < count; ++i) {
    if (records[i].event == nullptr) continue;
    const os::Result closed = os::CloseObject(records[i].event);
    if (!closed.ok) outcome = closed;
  }
  return ReportOutcome(ctx, outcome, KIV_ST_EVENT_CLOSE);
}
