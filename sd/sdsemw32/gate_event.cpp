// Gate events. The system event is signalled while the gate is open. A thread that passes resets
// the event and thereby closes the gate behind itself.
//
// Compatibility: "set" closes the gate and "clear" opens it, the reverse of the system event.
// Callers set a gate to hold other threads back.
#include "kivsdu/event.h"
#include "sdsemw32/wait.h"

using namespace kiv;

uint32_t KivSdEventCreate(KivSdContext* ctx, KivHandle* event) {
  if (event == nullptr) return Report(ctx, KIV_ST_ARGUMENT);
  return ReportHandle(ctx, os::MakeAutoEvent(true), event, KIV_ST_EVENT_CREATE);
}

uint32_t KivSdEventClose(KivSdContext* ctx, KivHandle* event) {
  if (event == nullptr) return Report(ctx, KIV_ST_ARGUMENT);
  return ReportOutcome(ctx, os::CloseObject(*event), KIV_ST_EVENT_CLOSE);
}

uint32_t KivSdEventSet(KivSdContext* ctx, KivHandle* event) {
  if (event == nullptr) return Report(ctx, KIV_ST_ARGUMENT);
  return ReportOutcome(ctx, os::UnsignalEvent(*event), KIV_ST_EVENT_SET);
}

uint32_t KivSdEventClear(KivSdContext* ctx, KivHandle* event) {
  if (event == nullptr) return Report(ctx, KIV_ST_ARGUMENT);
  return ReportOutcome(ctx, os::SignalEvent(*event), KIV_ST_EVENT_CLEAR);
}

uint32_t KivSdEventWait(KivSdContext* ctx, KivHandle* event, uint32_t timeoutMs) {
  if (event == nullptr) return Report(ctx, KIV_ST_ARGUMENT);
  return ReportWait(ctx, os::WaitOne(*event, timeoutMs), KIV_ST_EVENT_TIMEOUT, KIV_ST_EVENT_WAIT);
}
