#include "os/lnx/semaphore_record.h"

#include <cerrno>

#include "os/lnx/waits.h"

namespace kiv::os {
namespace {

struct UnnamedContent {
  ObjectWord word;  // the semaphore itself
  std::atomic<int32_t> maximumCount;
};

struct SharedContent {
  ObjectWord word;
  NamedObject* object;
};

SemaphorePlace UnnamedPlace(Slot* slot, const void* handle) {
  return {&ContentOf<UnnamedContent>(slot)->word, IdentityOf(handle), Scope::kProcess};
}

SemaphorePlace SharedPlace(Slot* slot) {
  return {ContentOf<SharedContent>(slot)->object->semaphore, kSharedIdentity, Scope::kShared};
}

bool Enter(Slot* slot, const void* handle) {
  return EnterObject(&ContentOf<SharedContent>(slot)->word, IdentityOf(handle));
}

void Leave(Slot* slot) {
  if (!LeaveObject(&ContentOf<SharedContent>(slot)->word)) return;
  EndSharedSemaphoreSlot(slot);
  FreeSlot(slot);
}

}  // namespace

ValueResult<void*> MakeUnnamedSemaphore(int32_t initialCount, int32_t maximumCount) {
  Slot* slot = TakeSlot();
  if (slot == nullptr) return {false, ENOMEM, nullptr};
  auto* semaphore = ContentOf<UnnamedContent>(slot);
  semaphore->maximumCount.store(maximumCount, std::memory_order_relaxed);
  StartWord(&semaphore->word, slot, static_cast<uint32_t>(initialCount));
  return {true, 0, PublishSlot(slot, Kind::kSemaphore)};
}

Wait WaitForSemaphore(Slot* slot, const void* handle, uint32_t timeoutMs) {
  const UnitTaken taken = TakeUnit(UnnamedPlace(slot, handle), timeoutMs);
  if (taken.last) FreeSlot(slot);
  return taken.wait;
}

// relaxed: GiveUnits changes nothing if the slot has another object by then.
Result GiveSemaphoreIn(Slot* slot, const void* handle, int32_t count, int32_t* previousCount) {
  const int32_t maximum =
      ContentOf<UnnamedContent>(slot)->maximumCount.load(std::memory_order_relaxed);
  return GiveUnits(UnnamedPlace(slot, handle), count, maximum, previousCount);
}

ValueResult<void*> HandleOfSemaphore(const ValueResult<NamedObject*>& object) {
  if (!object.ok) return {false, object.error, nullptr};
  Slot* slot = TakeSlot();
  if (slot == nullptr) {
    ReleaseNamed(object.value);
    return {false, ENOMEM, nullptr};
  }
  auto* semaphore = ContentOf<SharedContent>(slot);
  semaphore->object = object.value;
  StartWord(&semaphore->word, slot, 0);
  return {true, 0, PublishSlot(slot, Kind::kSharedSemaphore)};
}

Wait WaitForSharedSemaphore(Slot* slot, const void* handle, uint32_t timeoutMs) {
  if (!Enter(slot, handle)) return FailedWait(EBADF);
  const UnitTaken taken = TakeUnit(SharedPlace(slot), timeoutMs);
  Leave(slot);
  return taken.wait;
}

Result GiveSharedSemaphoreIn(Slot* slot, const void* handle, int32_t count,
                             int32_t* previousCount) {
  if (!Enter(slot, handle)) return {false, EBADF};
  const int32_t maximum = ContentOf<SharedContent>(slot)->object->maximumCount;
  const Result given = GiveUnits(SharedPlace(slot), count, maximum, previousCount);
  Leave(slot);
  return given;
}

void EndSharedSemaphoreSlot(Slot* slot) { ReleaseNamed(ContentOf<SharedContent>(slot)->object); }

}  // namespace kiv::os
