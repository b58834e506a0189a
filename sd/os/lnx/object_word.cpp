#include "os/lnx/object_word.h"

#include <cerrno>

namespace kiv::os {

uint64_t StartWord(ObjectWord* word, const Slot* slot, uint32_t state) {
  const uint64_t identity = uint64_t{GenerationToCome(slot)} << kGenerationShift;
  // relaxed: PublishSlot releases it.
  word->store(identity | state, std::memory_order_relaxed);
  return identity;
}

bool EnterObject(ObjectWord* word, uint64_t identity) {
  uint64_t state = word->load(std::memory_order_relaxed);
  while (IsOpen(state, identity) && !IsFullOfUsers(state)) {
    // acquire: the content that the word guards is read next.
    if (word->compare_exchange_weak(state, state + kOneUser, std::memory_order_acquire,
                                    std::memory_order_relaxed)) {
      return true;
    }
  }
  return false;
}

// acq_rel: the last user sees what all users have done.
bool LeaveObject(ObjectWord* word) {
  return IsClosedWithoutUsers(word->fetch_sub(kOneUser, std::memory_order_acq_rel) - kOneUser);
}

Closing CloseHandle(const void* handle, Kind kind) {
  Slot* slot = FindSlot(handle, kind);
  if (slot == nullptr || !RetireHandle(slot, handle, kind)) return {{false, EBADF}, nullptr};
  const uint64_t before = ContentOf<ObjectWord>(slot)->fetch_or(kClosed, std::memory_order_acq_rel);
  return {{true, 0}, IsClosedWithoutUsers(before | kClosed) ? slot : nullptr};
}

Result CloseAndFree(const void* handle, Kind kind) {
  const Closing closing = CloseHandle(handle, kind);
  if (closing.ended != nullptr) FreeSlot(closing.ended);
  return closing.result;
}

}  // namespace kiv::os
