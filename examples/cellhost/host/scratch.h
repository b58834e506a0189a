// Scratch memory: memory for the request that the calling thread carries out, from the thread's
// request heap. All of it is freed at once when the reply is complete.
#ifndef CELLHOST_HOST_SCRATCH_H
#define CELLHOST_HOST_SCRATCH_H

#include <stdint.h>

#include <string_view>

#include "host/text_room.h"

namespace cellhost {

// Allocates a piece, aligned for any number or pointer. Returns null without memory, after
// reporting it. The first piece begins a request. The thread must have a record.
void* TakeScratch(uint64_t sizeBytes);

template <class Value>
Value* TakeScratchFor(uint32_t count) {
  static_assert(alignof(Value) <= 8, "scratch memory is aligned to 8");
  return static_cast<Value*>(TakeScratch(uint64_t{count} * sizeof(Value)));
}

// Ends the request: frees all scratch memory of the calling thread.
void ResetScratch();

// Keeps texts in scratch memory.
class ScratchRoom final : public TextRoom {
 public:
  bool MakeRoom(uint64_t lengthBytes, char** room) override;
};

// A text that grows in scratch memory. After an allocation fails, the text no longer changes and
// `failed` is true.
class ScratchText {
 public:
  void Add(std::string_view text);
  std::string_view text() const { return {start_, length_}; }
  void Fail() { failed_ = true; }  // for a caller that lacks memory to make a part of the text
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
