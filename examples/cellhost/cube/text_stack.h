// Texts on a memory stack: names are pushed one behind the other, stay where they are while the
// stack grows, and go all at once. Not locked.
#ifndef CELLHOST_CUBE_TEXT_STACK_H
#define CELLHOST_CUBE_TEXT_STACK_H

#include <stdint.h>

#include <string_view>

#include "cube/text_room.h"
#include "kivsdu/memstack.h"

namespace cellhost {

class TextStack final : public TextRoom {
 public:
  TextStack() = default;
  TextStack(const TextStack&) = delete;
  TextStack& operator=(const TextStack&) = delete;
  ~TextStack();

  // Copies a text onto the stack; the first one makes the stack. False when there is no memory,
  // which has then been told.
  bool Push(std::string_view text, std::string_view* kept);

  // The same without the text.
  bool MakeRoom(uint64_t lengthBytes, char** room) override;

  uint64_t bytesPushed() const { return bytesPushed_; }

 private:
  bool EnsureStack();

  KivSdMemStack* stack_ = nullptr;
  uint64_t bytesPushed_ = 0;
};

}  // namespace cellhost

#endif
