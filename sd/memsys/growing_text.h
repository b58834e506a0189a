// A text that grows as it is written, from the C runtime's memory: for what a file or the
// environment may make as long as it likes. Belongs to one thread.
#ifndef KIV_MEMSYS_GROWING_TEXT_H
#define KIV_MEMSYS_GROWING_TEXT_H

#include <cstddef>
#include <cstring>

#include "os/heap.h"

namespace kiv {

class GrowingText {
 public:
  GrowingText() = default;
  ~GrowingText() { os::RawFree(text_); }
  GrowingText(const GrowingText&) = delete;
  GrowingText& operator=(const GrowingText&) = delete;

  // False when there is no memory; the text is then as it was.
  bool Append(const char* text, size_t length) {
    if (!Reserve(length_ + length + 1)) return false;
    std::memcpy(text_ + length_, text, length);
    Shorten(length_ + length);
    return true;
  }
  bool Append(const char* text) { return Append(text, std::strlen(text)); }
  bool Append(char character) { return Append(&character, 1); }

  // Keeps the first `length` characters, of which there are as many.
  void Shorten(size_t length) {
    length_ = length;
    if (text_ != nullptr) text_[length_] = '\0';
  }

  size_t length() const { return length_; }
  bool EndsWith(char character) const { return length_ > 0 && text_[length_ - 1] == character; }

  // Terminated. Good until the text is written again.
  const char* text() const { return text_ != nullptr ? text_ : ""; }

 private:
  static constexpr size_t kFirstBytes = 64;

  bool Reserve(size_t sizeBytes) {
    if (sizeBytes <= roomBytes_) return true;
    size_t roomBytes = roomBytes_ != 0 ? roomBytes_ : kFirstBytes;
    while (roomBytes < sizeBytes) roomBytes *= 2;
    void* moved = os::RawReallocate(text_, roomBytes);
    if (moved == nullptr) return false;
    text_ = static_cast<char*>(moved);
    roomBytes_ = roomBytes;
    return true;
  }

  char* text_ = nullptr;
  size_t length_ = 0;  // without the terminator
  size_t roomBytes_ = 0;
};

}  // namespace kiv

#endif
