// The words of a configuration file, and the numbers that words stand for.
//
// Numbers are not scanned by the C runtime, because its scanners treat signs and numbers that are
// too long differently on each platform.
#ifndef KIV_MEMSYS_CONFIGURATION_WORDS_H
#define KIV_MEMSYS_CONFIGURATION_WORDS_H

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>

#include "os/heap.h"

namespace kiv {

// A text that grows as it is written, in memory of the C runtime: for text of any length from a
// file or the environment. Used by one thread.
class GrowingText {
 public:
  GrowingText() = default;
  ~GrowingText() { os::RawFree(text_); }
  GrowingText(const GrowingText&) = delete;
  GrowingText& operator=(const GrowingText&) = delete;

  // Returns false when there is no memory; the text is then unchanged.
  bool Append(const char* text, size_t length) {
    if (!Reserve(length_ + length + 1)) return false;
    std::memcpy(text_ + length_, text, length);
    Shorten(length_ + length);
    return true;
  }
  bool Append(const char* text) { return Append(text, std::strlen(text)); }
  bool Append(char character) { return Append(&character, 1); }

  // Keeps the first `length` characters. `length` must not exceed the current length.
  void Shorten(size_t length) {
    length_ = length;
    if (text_ != nullptr) text_[length_] = '\0';
  }

  size_t length() const { return length_; }
  bool EndsWith(char character) const { return length_ > 0 && text_[length_ - 1] == character; }

  // Returns the text with a terminator. The pointer is valid until the text is written again.
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

// The words of a configuration file: the text between spaces, tabs and line feeds. "#" starts a
// comment.
class TokenReader {
 public:
  // The caller closes the file.
  explicit TokenReader(std::FILE* file) : file_(file) {}

  // Returns the next word, of any length; it is valid until the next call. Returns null at the end
  // of the file. A word for which there is no memory also ends the file: otherwise a piece of it
  // could be read as another word.
  const char* Next();

 private:
  bool ReadWord();

  std::FILE* file_;
  GrowingText word_;
  bool ended_ = false;
};

// Scans a size or a count: a number, or a number above 0 directly followed by K, M or G in either
// case. A number too large for its unit counts as 1 TiB. Returns false for anything else.
bool ScanSize(const char* word, uint64_t* value);

// Scans a byte of one decimal digit. Returns false for anything else.
bool ScanByte(const char* word, uint64_t* value);

}  // namespace kiv

#endif
