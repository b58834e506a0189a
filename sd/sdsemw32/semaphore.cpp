// Counting semaphores.
#include "kivsdu/semaphore.h"

#include "sdsemw32/wait.h"

using namespace kiv;

namespace {

uint32_t ClearFailure(uint32_t osError) {
  return osError == os::kErrorTooManyPosts ? KIV_ST_SEM_OVERFLOW : KIV_ST_SEM_CLEAR;
}

}  // namespace

uint32_t KivSdCntSemCreate(KivSdContext* ctx, const char* name, int32_t initialCount,
                           int32_t maximumCount, KivHandle* semaphore) {
  if (semaphore == nullptr) return Report(ctx, KIV_ST_ARGUMENT);
  return ReportHandle(ctx, os::MakeSemaphore(name, initialCount, maximumCount), semaphore,
                      KIV_ST_SEM_CREATE);
}

uint32_t KivSdCntSemOpen(KivSdContext* ctx, const char* name, KivHandle* semaphore) {
  if (name == nullptr || semaphore == nullptr) return Report(ctx, KIV_ST_ARGUMENT);
  return ReportHandle(ctx, os::OpenNamedSemaphore(name), semaphore, KIV_ST_SEM_OPEN);
}

uint32_t KivSdCntSemClose(KivSdContext* ctx, KivHandle* semaphore) {
  if (semaphore == nullptr) return Report(ctx, KIV_ST_ARGUMENT);
  return ReportOutcome(ctx, os::CloseObject(*semaphore), KIV_ST_SEM_CLOSE);
}

uint32_t KivSdCntSemRequest(KivSdContext* ctx, KivHandle* semaphore, uint64_t timeoutMs) {
  if (semaphore == nullptr) return Report(ctx, KIV_ST_ARGUMENT);
  // Only the low 32 bits count, as a signed number: any negative time-out waits forever.
  const auto time = static_cast<uint32_t>(timeoutMs);
  const bool forEver = static_cast<int32_t>(time) < 0;
  return ReportWait(ctx, os::WaitOne(*semaphore, forEver ? os::kWaitForEver : time),
                    KIV_ST_SEM_TIMEOUT, KIV_ST_SEM_REQUEST);
}

uint32_t KivSdCntSemClear(KivSdContext* ctx, KivHandle* semaphore, int32_t releaseCount,
                          int32_t* previousCount) {
  if (semaphore == nullptr) return Report(ctx, KIV_ST_ARGUMENT);
  const os::Result given = os::GiveSemaphore(*semaphore, releaseCount, previousCount);
  return ReportOutcome(ctx, given, ClearFailure(given.error));
}
