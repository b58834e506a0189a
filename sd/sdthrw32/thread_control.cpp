// Control of threads: exit, suspend, resume, priorities, handle. Each operation is at most one
// system call.
//
// Compatibility: suspend and resume ignore the result of that call. Hosts rely on their success.
#include "os/thread_control.h"

#include "kivsdu/thread.h"
#include "report.h"
#include "sdthrw32/thread_handle.h"

using namespace kiv;

namespace {

uint32_t YieldPriority(KivSdContext* ctx, int32_t value, int32_t* priority) {
  if (priority == nullptr) return Report(ctx, KIV_ST_ARGUMENT);
  *priority = value;
  return Report(ctx, KIV_ST_OK);
}

}  // namespace

void KivSdThreadExit(KivSdContext* /*ctx*/, uint32_t exitCode) { os::EndCurrentThread(exitCode); }

uint32_t KivSdThreadSuspend(KivSdContext* ctx, KivHandle* thread) {
  static_cast<void>(os::StopThread(HandleOf(thread)));
  return Report(ctx, KIV_ST_OK);
}

uint32_t KivSdThreadResume(KivSdContext* ctx, KivHandle* thread) {
  if (thread == nullptr) return Report(ctx, KIV_ST_ARGUMENT);
  static_cast<void>(os::ResumeStoppedThread(*thread));
  return Report(ctx, KIV_ST_OK);
}

uint32_t KivSdThreadPriorityGet(KivSdContext* ctx, KivHandle* thread, int32_t* priority) {
  if (priority == nullptr) return Report(ctx, KIV_ST_ARGUMENT);
  const os::ValueResult<int32_t> read = os::ReadThreadPriority(HandleOf(thread));
  if (read.ok) *priority = read.value;
  return ReportOutcome(ctx, read, KIV_ST_THREAD_PRIORITY_GET);
}

uint32_t KivSdThreadPrioritySet(KivSdContext* ctx, KivHandle* thread, int32_t priority) {
  return ReportOutcome(ctx, os::WriteThreadPriority(HandleOf(thread), priority),
                       KIV_ST_THREAD_PRIORITY_SET);
}

// Compatibility: always returns the normal priority of the system's scale, not the thread's own.
uint32_t KivSdThreadBasePriorityGet(KivSdContext* ctx, KivHandle /*ignored*/, int32_t* priority) {
  return YieldPriority(ctx, 0, priority);
}

uint32_t KivSdThreadHighPriorityGet(KivSdContext* ctx, KivHandle /*ignored*/, int32_t* priority) {
  return YieldPriority(ctx, os::kHighestThreadPriority, priority);
}

uint32_t KivSdThreadHandleGet(KivSdContext* ctx, KivHandle* thread) {
  if (thread == nullptr) return Report(ctx, KIV_ST_ARGUMENT);
  const os::ValueResult<void*> made = os::DuplicateCurrentThread();
  if (made.ok) *thread = made.value;
  return ReportOutcome(ctx, made, KIV_ST_THREAD_HANDLE);
}
