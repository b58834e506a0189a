// Threads. Each operation is one call of the system; several ignore what it says, and hosts rely
// on their success.
#include "kivsdu/thread.h"

#include "os/thread.h"
#include "os/thread_control.h"
#include "report.h"

namespace {

namespace os = kiv::os;
using kiv::Report;
using kiv::ReportOutcome;

// A null pointer names the calling thread.
void* HandleOf(const KivHandle* thread) {
  return thread != nullptr ? *thread : os::CurrentThreadHandle();
}

uint32_t YieldPriority(KivSdContext* ctx, int32_t value, int32_t* priority) {
  if (priority == nullptr) return Report(ctx, KIV_ST_ARGUMENT);
  *priority = value;
  return Report(ctx, KIV_ST_OK);
}

}  // namespace

uint32_t KivSdThreadCreate(KivSdContext* ctx, KivSdThreadRoutine routine, uint64_t /*ignored*/,
                           uint32_t stackBytes, void* argument, uint32_t* id, KivHandle* thread) {
  if (routine == nullptr || id == nullptr || thread == nullptr) {
    return Report(ctx, KIV_ST_ARGUMENT);
  }
  *thread = nullptr;
  const os::ValueResult<void*> started = os::StartThread(routine, argument, stackBytes, id);
  if (!started.ok) return Report(ctx, KIV_ST_THREAD_CREATE, started.error);
  *thread = started.value;
  return Report(ctx, KIV_ST_OK);
}

uint32_t KivSdThreadDelete(KivSdContext* ctx, KivHandle* thread) {
  if (thread == nullptr) return Report(ctx, KIV_ST_ARGUMENT);
  return ReportOutcome(ctx, os::CloseThread(*thread), KIV_ST_THREAD_DELETE);
}

void KivSdThreadExit(KivSdContext* /*ctx*/, uint32_t exitCode) { os::EndCurrentThread(exitCode); }

uint32_t KivSdThreadYield(KivSdContext* ctx) {
  os::YieldThread();
  return Report(ctx, KIV_ST_OK);
}

uint32_t KivSdThreadSuspend(KivSdContext* ctx, KivHandle* thread) {
  static_cast<void>(os::StopThread(HandleOf(thread)));
  return Report(ctx, KIV_ST_OK);
}

uint32_t KivSdThreadResume(KivSdContext* ctx, KivHandle* thread) {
  if (thread == nullptr) return Report(ctx, KIV_ST_ARGUMENT);
  static_cast<void>(os::ResumeStoppedThread(*thread));
  return Report(ctx, KIV_ST_OK);
}

uint32_t KivSdThreadJoin(KivSdContext* ctx, KivHandle* thread) {
  static_cast<void>(os::JoinThread(HandleOf(thread)));
  return Report(ctx, KIV_ST_OK);
}

uint32_t KivSdThreadIdGet(KivSdContext* ctx, uint32_t* id) {
  if (id == nullptr) return Report(ctx, KIV_ST_ARGUMENT);
  *id = os::CurrentThreadId();
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

// Kept: the scale's normal priority, and not what the thread has.
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
