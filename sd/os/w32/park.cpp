#include "os/park.h"

#include <climits>

#include "os/w32/win32.h"

namespace kiv::os {

ValueResult<void*> MakeParkMutex() { return FromPointer(CreateMutexA(nullptr, FALSE, nullptr)); }

ValueResult<void*> MakeParkSemaphore() {
  return FromPointer(CreateSemaphoreA(nullptr, 0, LONG_MAX, nullptr));
}

Result CloseParkMutex(void* mutex) { return FromBool(CloseHandle(mutex)); }

Result CloseParkSemaphore(void* semaphore) { return FromBool(CloseHandle(semaphore)); }

Result TakeParkMutex(void* mutex) { return FromWait(WaitForSingleObject(mutex, INFINITE)); }

Result ReleaseParkMutex(void* mutex) { return FromBool(ReleaseMutex(mutex)); }

Result ReleaseAndPark(void* mutex, void* semaphore) {
  const Result waited = FromWait(SignalObjectAndWait(mutex, semaphore, INFINITE, FALSE));
  // With an invalid semaphore the call fails before it releases the mutex. If the mutex is not
  // held, this release fails and does nothing.
  if (!waited.ok) ReleaseMutex(mutex);
  return waited;
}

ValueResult<void*> MakeParkEvent() {
  return FromPointer(CreateEventA(nullptr, FALSE, FALSE, nullptr));
}

Result CloseParkEvent(void* event) { return FromBool(CloseHandle(event)); }

Result SignalAndTake(void* event, void* mutex) {
  return FromWait(SignalObjectAndWait(event, mutex, INFINITE, FALSE));
}

Result Unpark(void* semaphore) { return FromBool(ReleaseSemaphore(semaphore, 1, nullptr)); }

}  // namespace kiv::os
