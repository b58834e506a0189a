// An allocator for texts: a memory stack (text_stack.h) or a request's scratch memory (scratch.h).
#ifndef CELLHOST_HOST_TEXT_ROOM_H
#define CELLHOST_HOST_TEXT_ROOM_H

#include <stdint.h>

namespace cellhost {

class TextRoom {
 public:
  // Allocates room for the caller to write a text. Returns false without memory, after reporting
  // it.
  virtual bool MakeRoom(uint64_t lengthBytes, char** room) = 0;

 protected:
  ~TextRoom() = default;
};

}  // namespace cellhost

#endif
