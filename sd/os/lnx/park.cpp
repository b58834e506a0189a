// The mutex is a semaphore of count 1. The locks hold it for a few instructions and never twice.
#include "os/park.h"

#include <cerrno>
#include <cstdint>

#include "os/lnx/event.h"
#include "os/lnx/semaphore_record.h"

namespace kiv::os {
namespace {

constexpr int32_t kFree = 1;

Result Take(void* semaphore) {
  Slot* slot = FindSlot(semaphore, Kind::kSemaphore);
  if (slot == nullptr) return {false, EBADF};
  const Wait waited = WaitForSemaphore(slot, semaphore, kWaitForEver);
  return {waited.result == kWaitSignalled, waited.error};
}

Result Give(void* semaphore) {
  Slot* slot = FindSlot(semaphore, Kind::kSemaphore);
  if (slot == nullptr) return {false, EBADF};
  return GiveSemaphoreIn(slot, semaphore, 1, nullptr);
}

}  // namespace

ValueResult<void*> MakeParkMutex() { return MakeUnnamedSemaphore(kFree, kFree); }

ValueResult<void*> MakeParkSemaphore() { return MakeUnnamedSemaphore(0, INT32_MAX); }

Result CloseParkMutex(void* mutex) { return CloseAndFree(mutex, Kind::kSemaphore); }

Result CloseParkSemaphore(void* semaphore) { return CloseAndFree(semaphore, Kind::kSemaphore); }

Result TakeParkMutex(void* mutex) { return Take(mutex); }

Result ReleaseParkMutex(void* mutex) { return Give(mutex); }

Result ReleaseAndPark(void* mutex, void* semaphore) {
  const Result released = Give(mutex);
  return released.ok ? Take(semaphore) : released;
}

ValueResult<void*> MakeParkEvent() { return MakeEvent(EventKind::kAutomatic, false); }

Result CloseParkEvent(void* event) { return CloseAndFree(event, Kind::kEvent); }

Result SignalAndTake(void* event, void* mutex) {
  Slot* slot = FindSlot(event, Kind::kEvent);
  if (slot == nullptr) return {false, EBADF};
  const Result signalled = SignalEventIn(slot, IdentityOf(event));
  return signalled.ok ? Take(mutex) : signalled;
}

Result Unpark(void* semaphore) { return Give(semaphore); }

}  // namespace kiv::os
