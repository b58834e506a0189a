// Counting events: unnamed counting semaphores with the largest count.
#include "kivsdu/event.h"
#include "kivsdu/semaphore.h"

uint32_t KivSdCountingEventCreate(KivSdContext* ctx, KivHandle* event, int32_t initialCount) {
  return KivSdCntSemCreate(ctx, nullptr, initialCount, INT32_MAX, event);
}

uint32_t KivSdCountingEventClose(KivSdContext* ctx, KivHandle* event) {
  return KivSdCntSemClose(ctx, event);
}

uint32_t KivSdCountingEventSet(KivSdContext* ctx, KivHandle* event) {
  return KivSdCntSemClear(ctx, event, 1, nullptr);
}

uint32_t KivSdCountingEventWait(KivSdContext* ctx, KivHandle* event) {
  return KivSdCntSemRequest(ctx, event, KIV_WAIT_INFINITE);
}

uint32_t KivSdCountingEventTimedWait(KivSdContext* ctx, KivHandle* event, uint64_t timeoutMs) {
  return KivSdCntSemRequest(ctx, event, timeoutMs);
}
