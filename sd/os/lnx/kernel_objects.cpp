// The primitives find a handle's object and pass the call on to its kind.
#include "os/kernel_objects.h"

#include <cerrno>

#include "os/lnx/event.h"
#include "os/lnx/mutex_record.h"
#include "os/lnx/names.h"
#include "os/lnx/semaphore_record.h"
#include "os/lnx/thread_record.h"
#include "os/lnx/waits.h"

namespace kiv::os {

const uint32_t kErrorTooManyPosts = EOVERFLOW;

namespace {

constexpr Result kBadHandle = {false, EBADF};

bool IsWaitable(Kind kind) {
  return kind == Kind::kSemaphore || kind == Kind::kSharedSemaphore || kind == Kind::kMutex ||
         kind == Kind::kEvent;
}

}  // namespace

Wait WaitOne(void* object, uint32_t timeoutMs) {
  Slot* slot = SlotOfNumber(object);
  const Kind kind = KindIn(slot, object);
  // The two kinds that cost least come before the switch, which jumps through a table.
  if (kind == Kind::kSemaphore) return WaitForSemaphore(slot, object, timeoutMs);
  if (kind == Kind::kEvent) return WaitForEvent(slot, IdentityOf(object), timeoutMs);
  switch (kind) {
    case Kind::kSharedSemaphore:
      return WaitForSharedSemaphore(slot, object, timeoutMs);
    case Kind::kMutex:
      return WaitForMutex(slot, object, timeoutMs);
    case Kind::kThread:
      return WaitForThread(object, timeoutMs);
    default:
      return FailedWait(EBADF);
  }
}

Result CloseObject(void* object) {
  const Kind kind = KindOf(object);
  if (!IsWaitable(kind)) return kBadHandle;
  const Closing closing = CloseHandle(object, kind);
  if (closing.ended == nullptr) return closing.result;
  if (kind == Kind::kMutex) EndMutexSlot(closing.ended);
  if (kind == Kind::kSharedSemaphore) EndSharedSemaphoreSlot(closing.ended);
  FreeSlot(closing.ended);
  return closing.result;
}

ValueResult<void*> MakeSemaphore(const char* name, int32_t initialCount, int32_t maximumCount) {
  if (!AreValidCounts(initialCount, maximumCount)) return {false, EINVAL, nullptr};
  if (name == nullptr) return MakeUnnamedSemaphore(initialCount, maximumCount);
  return HandleOfSemaphore(
      MakeNamed(name, {NamedKind::kSemaphore, initialCount, maximumCount, 0, 0}));
}

ValueResult<void*> OpenNamedSemaphore(const char* name) {
  return HandleOfSemaphore(OpenNamed(name, NamedKind::kSemaphore));
}

Result GiveSemaphore(void* semaphore, int32_t releaseCount, int32_t* previousCount) {
  Slot* slot = SlotOfNumber(semaphore);
  const Kind kind = KindIn(slot, semaphore);
  if (kind == Kind::kSemaphore) {
    return GiveSemaphoreIn(slot, semaphore, releaseCount, previousCount);
  }
  if (kind != Kind::kSharedSemaphore) return kBadHandle;
  return GiveSharedSemaphoreIn(slot, semaphore, releaseCount, previousCount);
}

ValueResult<void*> MakeMutex(const char* name) {
  if (name == nullptr) return MakeUnnamedMutex();
  return HandleOfMutex(MakeNamed(name, {NamedKind::kMutex, 0, 0, 0, 0}));
}

ValueResult<void*> OpenNamedMutex(const char* name) {
  return HandleOfMutex(OpenNamed(name, NamedKind::kMutex));
}

Result GiveMutex(void* mutex) {
  Slot* slot = FindSlot(mutex, Kind::kMutex);
  return slot == nullptr ? kBadHandle : GiveMutexIn(slot, mutex);
}

ValueResult<void*> MakeAutoEvent(bool signalled) {
  return MakeEvent(EventKind::kAutomatic, signalled);
}

ValueResult<void*> MakeManualEvent() { return MakeEvent(EventKind::kManual, false); }

Result SignalEvent(void* event) {
  Slot* slot = FindSlot(event, Kind::kEvent);
  return slot == nullptr ? kBadHandle : SignalEventIn(slot, IdentityOf(event));
}

Result UnsignalEvent(void* event) {
  Slot* slot = FindSlot(event, Kind::kEvent);
  return slot == nullptr ? kBadHandle : UnsignalEventIn(slot, IdentityOf(event));
}

}  // namespace kiv::os
