// Processes.
#include "os/process.h"
#include "kivsdu/thread.h"
#include "report.h"

using namespace kiv;

namespace {

constexpr int32_t kCallingProcessId = -1;

}  // namespace

uint32_t KivSdProcessDelete(KivSdContext* ctx, KivHandle process) {
  const os::Result ended = os::EndProcess(process, 0);
  // Compatibility: only a lack of rights is a failure. With any other error the process has usually
  // ended already, which is what the caller wants. The record holds the error in every case.
  const bool denied = !ended.ok && ended.error == os::kErrorAccessDenied;
  return Report(ctx, denied ? KIV_ST_PROCESS_DELETE : KIV_ST_OK, ended.error);
}

uint32_t KivSdProcessIdGet(KivSdContext* ctx, uint32_t* id) {
  if (id == nullptr) return Report(ctx, KIV_ST_ARGUMENT);
  *id = os::CurrentProcessId();
  return Report(ctx, KIV_ST_OK);
}

// Compatibility: returns the process's pseudo-handle, not a session number. Hosts on this platform
// only compare the value.
uint32_t KivSdProcessSessionIdGet(KivSdContext* ctx, uint64_t* id) {
  if (id == nullptr) return Report(ctx, KIV_ST_ARGUMENT);
  *id = reinterpret_cast<uint64_t>(os::CurrentProcessHandle());
  return Report(ctx, KIV_ST_OK);
}

uint32_t KivSdProcessCheckAlive(KivSdContext* ctx, KivHandle process) {
  const os::Wait waited = os::WaitForProcess(process, 0);
  if (waited.result == os::kWaitTimedOut) return Report(ctx, KIV_ST_OK);
  // Records the wait's result, not the last error: 0 if the process has ended, not 0 if the handle
  // is bad.
  return Report(ctx, KIV_ST_PROCESS_ALIVE, waited.result);
}

uint32_t KivSdProcessPriorityGet(KivSdContext* ctx, uint32_t* priorityClass) {
  if (priorityClass == nullptr) return Report(ctx, KIV_ST_ARGUMENT);
  const os::ValueResult<uint32_t> read = os::ReadPriorityClass(os::CurrentProcessHandle());
  if (read.ok) *priorityClass = read.value;
  return ReportOutcome(ctx, read, KIV_ST_PROCESS_PRIORITY_GET);
}

uint32_t KivSdProcessPrioritySet(KivSdContext* ctx, KivHandle process, int32_t id,
                                 uint32_t priorityClass) {
  const bool calling = process == nullptr || id == kCallingProcessId;
  const os::Result set =
      os::WritePriorityClass(calling ? os::CurrentProcessHandle() : process, priorityClass);
  return ReportOutcome(ctx, set, KIV_ST_PROCESS_PRIORITY_SET);
}
