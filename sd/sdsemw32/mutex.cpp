// Kernel mutexes.
#include "kivsdu/mutex.h"

#include "sdsemw32/wait.h"

using namespace kiv;

uint32_t KivSdMutexCreate(KivSdContext* ctx, const char* name, KivHandle* mutex) {
  if (mutex == nullptr) return Report(ctx, KIV_ST_ARGUMENT);
  return ReportHandle(ctx, os::MakeMutex(name), mutex, KIV_ST_MUTEX_CREATE);
}

uint32_t KivSdMutexOpen(KivSdContext* ctx, const char* name, KivHandle* mutex) {
  if (name == nullptr || mutex == nullptr) return Report(ctx, KIV_ST_ARGUMENT);
  return ReportHandle(ctx, os::OpenNamedMutex(name), mutex, KIV_ST_MUTEX_OPEN);
}

uint32_t KivSdMutexClose(KivSdContext* ctx, KivHandle* mutex) {
  if (mutex == nullptr) return Report(ctx, KIV_ST_ARGUMENT);
  const os::Result closed = os::CloseObject(*mutex);
  // Compatibility: unlike with every other kind of object, the variable is set to null even if the
  // close fails. Callers rely on it.
  *mutex = nullptr;
  return ReportOutcome(ctx, closed, KIV_ST_MUTEX_CLOSE);
}

uint32_t KivSdMutexRequest(KivSdContext* ctx, KivHandle* mutex, uint32_t timeoutMs) {
  if (mutex == nullptr) return Report(ctx, KIV_ST_ARGUMENT);
  // An abandoned mutex is reported as a failure although the caller now holds it, because the
  // guarded data may be half-changed.
  return ReportWait(ctx, os::WaitOne(*mutex, timeoutMs), KIV_ST_MUTEX_TIMEOUT,
                    KIV_ST_MUTEX_REQUEST);
}

uint32_t KivSdMutexClear(KivSdContext* ctx, KivHandle* mutex) {
  if (mutex == nullptr) return Report(ctx, KIV_ST_ARGUMENT);
  return ReportOutcome(ctx, os::GiveMutex(*mutex), KIV_ST_MUTEX_CLEAR);
}
