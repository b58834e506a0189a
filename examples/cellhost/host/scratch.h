// Memory for the request that a thread carries out, from the thread's request heap. All of it goes
// at once when the reply has been made.
#ifndef CELLHOST_HOST_SCRATCH_H
#define CELLHOST_HOST_SCRATCH_H

#include <stdint.h>

#include <string_view>

#include "cube/text_room.h"

namespace cellhost {

// A piece aligned for any number or pointer; null when there is no memory, which has then been
// told. The first piece begins a request. On a thread with a record.
void* TakeScratch(uint64_t sizeBytes);

template <class Value>
Value* TakeScratchFor(uint32_t count) {
  static_assert(alignof(Value) <= 8, "scratch memory is aligned to 8");
  return static_cast<Value*>(TakeScratch(uint64_t{count} * sizeof(Value)));
}

// Gives all of the thread's scratch memory back: the request has ended.
void ResetScratch();

// Room for texts of the request.
class ScratchRoom final : public TextRoom {
 public:
  bool MakeRoom(uint64_t lengthBytes, char** room) override;
};

// A text that grows in scratch memory. Once there is no memory it stays as it is and `failed`
// is true.
class ScratchText {
 public:
  void Add(std::string_view text);
  std::string_view text() const { return {start_, length_}; }
  void Fail() { failed_ = true; }  // memory for something else in the text was missing
  bool failed() const { return failed_; }

 private:
  bool Grow(size_t length);

  char* start_ = nullptr;
  size_t length_ = 0;
  size_t room_ = 0;
  bool failed_ = false;
};

}  // namespace cellhost

#endif
