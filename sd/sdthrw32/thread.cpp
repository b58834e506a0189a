// Threads: start, close, yield, join, and the calling thread's identifier.
#include "kivsdu/thread.h"

#include "os/thread.h"
#include "report.h"
#include "sdthrw32/thread_handle.h"

using namespace kiv;

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

uint32_t KivSdThreadYield(KivSdContext* ctx) {
  os::YieldThread();
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
