// Texts on a memory stack. Names are pushed one behind another, never move, and are freed all at
// once. Not locked.
#ifndef CELLHOST_HOST_TEXT_STACK_H
#define CELLHOST_HOST_TEXT_STACK_H

#include <stdint.h>

#include <string_view>

#include "host/text_room.h"
#include "kivsdu/memstack.h"

namespace cellhost {

class TextStack final : public TextRoom {
 public:
  TextStack() = default;
  TextStack(const TextStack&) = delete;
  TextStack& operator=(const TextStack&) = delete;
  ~TextStack();

  // Copies a text onto the stack; the first text makes the stack. Returns false without memory,
  // after reporting it.
  bool Push(std::string_view text, std::string_view* kept);

  // Pushes room for a text that the caller writes; otherwise like Push.
  bool MakeRoom(uint64_t lengthBytes, char** room) override;

  uint64_t bytesPushed() const { return bytesPushed_; }

 private:
  bool EnsureStack();

  KivSdMemStack* stack_ = nullptr;
  uint64_t bytesPushed_ = 0;
};

}  // namespace cellhost

#endif
