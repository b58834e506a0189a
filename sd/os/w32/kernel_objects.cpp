#include "os/kernel_objects.h"

#include "os/w32/win32.h"

namespace kiv::os {

static_assert(kWaitSignalled == WAIT_OBJECT_0);
static_assert(kWaitAbandoned == WAIT_ABANDONED);
static_assert(kWaitTimedOut == WAIT_TIMEOUT);
static_assert(kWaitForEver == INFINITE);

const uint32_t kErrorTooManyPosts = ERROR_TOO_MANY_POSTS;

Wait WaitOne(void* object, uint32_t timeoutMs) {
  const DWORD result = WaitForSingleObject(object, timeoutMs);
  return {result, result == kWaitSignalled ? 0 : GetLastError()};
}

Result CloseObject(void* object) { return FromBool(CloseHandle(object)); }

ValueResult<void*> MakeSemaphore(const char* name, int32_t initialCount, int32_t maximumCount) {
  return FromPointer(CreateSemaphoreA(nullptr, initialCount, maximumCount, name));
}

ValueResult<void*> OpenNamedSemaphore(const char* name) {
  return FromPointer(OpenSemaphoreA(SEMAPHORE_ALL_ACCESS, TRUE, name));
}

Result GiveSemaphore(void* semaphore, int32_t releaseCount, int32_t* previousCount) {
  LONG previous = 0;
  const Result result = FromBool(ReleaseSemaphore(semaphore, releaseCount, &previous));
  if (result.ok && previousCount != nullptr) *previousCount = previous;
  return result;
}

ValueResult<void*> MakeMutex(const char* name) {
  return FromPointer(CreateMutexA(nullptr, FALSE, name));
}

ValueResult<void*> OpenNamedMutex(const char* name) {
  return FromPointer(OpenMutexA(MUTEX_ALL_ACCESS, TRUE, name));
}

Result GiveMutex(void* mutex) { return FromBool(ReleaseMutex(mutex)); }

ValueResult<void*> MakeAutoEvent(bool signalled) {
  return FromPointer(CreateEventA(nullptr, FALSE, signalled ? TRUE : FALSE, nullptr));
}

ValueResult<void*> MakeManualEvent() {
  return FromPointer(CreateEventA(nullptr, TRUE, FALSE, nullptr));
}

Result SignalEvent(void* event) { return FromBool(SetEvent(event)); }

Result UnsignalEvent(void* event) { return FromBool(ResetEvent(event)); }

}  // namespace kiv::os
