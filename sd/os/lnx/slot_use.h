// The use of an object in a slot of the handle table by one thread. While it lasts, another thread
// may close the handle; the object ends with its last use.
//
// A kind's content begins with its ObjectWord and has
//
//   static constexpr Kind kKind;
//   Result End();                   called once, by whoever ends the last use
#ifndef KIV_OS_LNX_SLOT_USE_H
#define KIV_OS_LNX_SLOT_USE_H

#include <cerrno>

#include "os/lnx/handles.h"
#include "os/lnx/object_word.h"
#include "os/os.h"

namespace kiv::os {

template <typename Content>
Result EndSlot(Slot* slot) {
  const Result ended = ContentOf<Content>(slot)->End();
  FreeSlot(slot);
  return ended;
}

template <typename Content>
class SlotUse {
 public:
  explicit SlotUse(const void* handle) : slot_(FindSlot(handle, Content::kKind)) {
    if (slot_ != nullptr && !EnterObject(&content()->word, IdentityOf(handle))) slot_ = nullptr;
  }
  ~SlotUse() {
    if (slot_ != nullptr && LeaveObject(&content()->word)) {
      static_cast<void>(EndSlot<Content>(slot_));
    }
  }
  SlotUse(const SlotUse&) = delete;
  SlotUse& operator=(const SlotUse&) = delete;

  // Whether the handle was valid.
  explicit operator bool() const { return slot_ != nullptr; }
  Content* operator->() const { return content(); }

 private:
  Content* content() const { return ContentOf<Content>(slot_); }

  Slot* slot_;
};

// Makes a handle for a slot whose content, except the word, is complete.
template <typename Content>
void* PublishContent(Slot* slot) {
  StartWord(&ContentOf<Content>(slot)->word, slot, 0);
  return PublishSlot(slot, Content::kKind);
}

// The result is that of the object's end, if no thread uses it any more.
template <typename Content>
Result CloseSlot(const void* handle) {
  const Closing closing = CloseHandle(handle, Content::kKind);
  if (closing.ended == nullptr) return closing.result;
  return EndSlot<Content>(closing.ended);
}

}  // namespace kiv::os

#endif
