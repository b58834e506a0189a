// What a configuration file consists of: words, and the numbers that words stand for.
//
// Numbers are scanned here and not by the C runtime, whose scanners differ between platforms where a
// number is too long or has a sign.
#ifndef KIV_MEMSYS_CONFIGURATION_WORDS_H
#define KIV_MEMSYS_CONFIGURATION_WORDS_H

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>

#include "os/heap.h"

namespace kiv {

// A text that grows as it is written, in memory of the C runtime: for text whose length a file or
// the environment decides. Belongs to one thread.
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

// The words of a configuration file: the text between spaces, tabs and line feeds. "#" starts a
// comment.
class TokenReader {
 public:
  // The file stays the caller's.
  explicit TokenReader(std::FILE* file) : file_(file) {}

  // The next word, of any length, good until the next call; null at the end of the file. A word
  // that there is no memory for ends the file too: what is left out is more than that word then,
  // but none of its pieces is taken for another.
  const char* Next();

 private:
  bool ReadWord();

  std::FILE* file_;
  GrowingText word_;
  bool ended_ = false;
};

// A size or a count: a number by itself, or one above 0 and a unit, K, M or G in either case,
// straight behind it. A number too large for its unit counts as 1 TiB. False for anything else.
bool ScanSize(const char* word, uint64_t* value);

// A byte: one decimal digit. False for anything else.
bool ScanByte(const char* word, uint64_t* value);

}  // namespace kiv

#endif
