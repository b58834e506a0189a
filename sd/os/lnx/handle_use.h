// Handles whose operations take long: one thread may close a handle while another thread waits in an
// operation on it. Threads and pipes have such handles.
//
// Every operation is a user of the handle's slot (object_word.h). A closed handle ends, and its slot
// goes back to the table, when the last operation has left it.
//
// The content of such a slot is a struct like this:
//
//   struct ThreadHandle {
//     static constexpr Kind kKind = Kind::kThread;
//     ObjectWord word;  // first, as in every object
//     ...
//     void End();       // gives up what the handle holds
//   };
#ifndef KIV_OS_LNX_HANDLE_USE_H
#define KIV_OS_LNX_HANDLE_USE_H

#include "os/lnx/object_word.h"

namespace kiv::os {

// A slot whose content is not published yet. Null if memory or numbers ran out.
template <typename Content>
Slot* TakeHandleSlot() {
  Slot* slot = TakeSlot();
  if (slot != nullptr) MakeContent<Content>(slot);
  return slot;
}

template <typename Content>
void* PublishHandle(Slot* slot) {
  StartWord(&ContentOf<Content>(slot)->word, slot, 0);
  return PublishSlot(slot, Content::kKind);
}

template <typename Content>
void EndHandle(Slot* slot) {
  ContentOf<Content>(slot)->End();
  FreeSlot(slot);
}

template <typename Content>
Result CloseHandleOf(const void* handle) {
  const Closing closing = CloseHandle(handle, Content::kKind);
  if (closing.ended != nullptr) EndHandle<Content>(closing.ended);
  return closing.result;
}

// The use of a handle until the end of the scope; false if the handle is not valid.
template <typename Content>
class HandleUse {
 public:
  explicit HandleUse(const void* handle) : slot_(FindSlot(handle, Content::kKind)) {
    if (slot_ != nullptr && !EnterObject(&content()->word, IdentityOf(handle))) slot_ = nullptr;
  }
  ~HandleUse() {
    if (slot_ != nullptr && LeaveObject(&content()->word)) EndHandle<Content>(slot_);
  }
  HandleUse(const HandleUse&) = delete;
  HandleUse& operator=(const HandleUse&) = delete;

  explicit operator bool() const { return slot_ != nullptr; }
  Content* operator->() const { return content(); }

 private:
  Content* content() const { return ContentOf<Content>(slot_); }

  Slot* slot_;
};

}  // namespace kiv::os

#endif
