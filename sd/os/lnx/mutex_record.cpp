// The memory of a mutex must outlive its last owner (mutex.h). A mutex that another thread still owns
// when its last handle is closed is set aside. A later call frees it when it has no owner any more.
#include "os/lnx/mutex_record.h"

#include <cerrno>
#include <cstdlib>

#include "os/lnx/mutex.h"
#include "os/lnx/waits.h"

namespace kiv::os {
namespace {

struct UnnamedMutex {
  pthread_mutex_t storage;
  OwnedMutex mutex;
  UnnamedMutex* next;  // of the mutexes that are set aside
};

// In a slot of kind kMutex.
struct MutexContent {
  ObjectWord word;
  OwnedMutex* mutex;
  UnnamedMutex* unnamed;  // one of these two is null
  NamedObject* named;
};

// Guards the list.
pthread_mutex_t asideMutex = PTHREAD_MUTEX_INITIALIZER;
UnnamedMutex* firstAside = nullptr;

void Free(UnnamedMutex* mutex) {
  EndMutex(&mutex->mutex);
  std::free(mutex);
}

// With the list's mutex held.
void FreeWithoutOwner() {
  UnnamedMutex** place = &firstAside;
  while (*place != nullptr) {
    UnnamedMutex* mutex = *place;
    if (IsOwnedHere(&mutex->mutex)) {
      place = &mutex->next;
    } else {
      *place = mutex->next;
      Free(mutex);
    }
  }
}

void SetAside(UnnamedMutex* mutex) {
  pthread_mutex_lock(&asideMutex);
  mutex->next = firstAside;
  firstAside = mutex;
  FreeWithoutOwner();
  pthread_mutex_unlock(&asideMutex);
}

UnnamedMutex* AllocateMutex() {
  auto* mutex = static_cast<UnnamedMutex*>(std::calloc(1, sizeof(UnnamedMutex)));
  if (mutex == nullptr) return nullptr;
  mutex->mutex.mutex = &mutex->storage;
  if (PrepareMutex(&mutex->storage, Scope::kProcess).ok) return mutex;
  std::free(mutex);
  return nullptr;
}

void* Publish(Slot* slot, OwnedMutex* mutex, UnnamedMutex* unnamed, NamedObject* named) {
  auto* content = ContentOf<MutexContent>(slot);
  content->mutex = mutex;
  content->unnamed = unnamed;
  content->named = named;
  StartWord(&content->word, slot, 0);
  return PublishSlot(slot, Kind::kMutex);
}

void EndUnnamed(UnnamedMutex* mutex) {
  ReleaseMutexWholly(&mutex->mutex);
  if (IsOwnedHere(&mutex->mutex)) {
    SetAside(mutex);
  } else {
    Free(mutex);
  }
}

void Leave(Slot* slot) {
  if (!LeaveObject(&ContentOf<MutexContent>(slot)->word)) return;
  EndMutexSlot(slot);
  FreeSlot(slot);
}

}  // namespace

ValueResult<void*> MakeUnnamedMutex() {
  UnnamedMutex* mutex = AllocateMutex();
  Slot* slot = mutex == nullptr ? nullptr : TakeSlot();
  if (slot != nullptr) return {true, 0, Publish(slot, &mutex->mutex, mutex, nullptr)};
  if (mutex != nullptr) Free(mutex);
  return {false, ENOMEM, nullptr};
}

ValueResult<void*> HandleOfMutex(const ValueResult<NamedObject*>& object) {
  if (!object.ok) return {false, object.error, nullptr};
  Slot* slot = TakeSlot();
  if (slot != nullptr) return {true, 0, Publish(slot, &object.value->mutex, nullptr, object.value)};
  ReleaseNamed(object.value);
  return {false, ENOMEM, nullptr};
}

Wait WaitForMutex(Slot* slot, const void* handle, uint32_t timeoutMs) {
  auto* content = ContentOf<MutexContent>(slot);
  if (!EnterObject(&content->word, IdentityOf(handle))) return FailedWait(EBADF);
  const Wait waited = TakeMutex(content->mutex, timeoutMs);
  Leave(slot);
  return waited;
}

Result GiveMutexIn(Slot* slot, const void* handle) {
  auto* content = ContentOf<MutexContent>(slot);
  if (!EnterObject(&content->word, IdentityOf(handle))) return {false, EBADF};
  const Result given = ReleaseMutex(content->mutex);
  Leave(slot);
  return given;
}

void EndMutexSlot(Slot* slot) {
  const auto* content = ContentOf<MutexContent>(slot);
  if (content->named != nullptr) {
    ReleaseNamed(content->named);
  } else {
    EndUnnamed(content->unnamed);
  }
}

}  // namespace kiv::os
