// Where texts are kept: on a stack of their own (text_stack.h), or in the memory of the request
// that needs them (scratch.h).
#ifndef CELLHOST_CUBE_TEXT_ROOM_H
#define CELLHOST_CUBE_TEXT_ROOM_H

#include <stdint.h>

namespace cellhost {

class TextRoom {
 public:
  // Room for the caller to write a text. False when there is no memory, which has then been told.
  virtual bool MakeRoom(uint64_t lengthBytes, char** room) = 0;

 protected:
  ~TextRoom() = default;
};

}  // namespace cellhost

#endif
