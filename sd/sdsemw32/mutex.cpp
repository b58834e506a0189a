// Mutexes of the kernel.
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
  // Kept: the variable is emptied also when the close failed, unlike every other kind's.
  *mutex = nullptr;
  return ReportOutcome(ctx, closed, KIV_ST_MUTEX_CLOSE);
}

uint32_t KivSdMutexRequest(KivSdContext* ctx, KivHandle* mutex, uint32_t timeoutMs) {
  if (mutex == nullptr) return Report(ctx, KIV_ST_ARGUMENT);
  // An abandoned mutex is a failure although the caller now holds it: what it guards may be half
  // changed, and the caller has to be told.
  return ReportWait(ctx, os::WaitOne(*mutex, timeoutMs), KIV_ST_MUTEX_TIMEOUT,
                    KIV_ST_MUTEX_REQUEST);
}

uint32_t KivSdMutexClear(KivSdContext* ctx, KivHandle* mutex) {
  if (mutex == nullptr) return Report(ctx, KIV_ST_ARGUMENT);
  return ReportOutcome(ctx, os::GiveMutex(*mutex), KIV_ST_MUTEX_CLEAR);
}
