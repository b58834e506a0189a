#include "os/lnx/text_file.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>

namespace kiv::os {
namespace {

constexpr int kOctalDigits = 3;

bool IsBlank(int letter) { return letter == ' ' || letter == '\t'; }

}  // namespace

TextFile::TextFile(const char* path)
    : descriptor_(open(path, O_RDONLY | O_CLOEXEC)),
      error_(descriptor_ == -1 ? static_cast<uint32_t>(errno) : 0) {}

TextFile::~TextFile() {
  if (descriptor_ != -1) close(descriptor_);
}

// The next byte, which stays unread; kEnd at the end of the file and after a failure.
int TextFile::Peek() {
  if (next_ == end_) {
    if (error_ != 0) return kEnd;
    ssize_t count;
    do {
      count = read(descriptor_, block_, sizeof block_);
    } while (count == -1 && errno == EINTR);
    if (count == -1) error_ = static_cast<uint32_t>(errno);
    if (count <= 0) return kEnd;
    next_ = 0;
    end_ = static_cast<size_t>(count);
  }
  return static_cast<unsigned char>(block_[next_]);
}

// Takes one character. After a backslash up to three octal digits follow.
char TextFile::TakeEscaped() {
  const int first = Peek();
  ++next_;
  if (first != '\\') return static_cast<char>(first);
  int value = 0;
  int digits = 0;
  for (; digits < kOctalDigits && Peek() >= '0' && Peek() <= '7'; ++digits) {
    value = value * 8 + Peek() - '0';
    ++next_;
  }
  return static_cast<char>(digits == 0 ? first : value);
}

bool TextFile::ReadField(char* field, size_t sizeBytes) {
  while (IsBlank(Peek())) ++next_;
  size_t length = 0;
  bool any = false;
  while (Peek() != kEnd && Peek() != '\n' && !IsBlank(Peek())) {
    const char letter = TakeEscaped();
    if (length + 1 < sizeBytes) field[length++] = letter;
    any = true;
  }
  field[length] = '\0';
  return any;
}

void TextFile::ReadRest(char* rest, size_t sizeBytes) {
  size_t length = 0;
  for (; Peek() != kEnd && Peek() != '\n'; ++next_) {
    if (length + 1 < sizeBytes) rest[length++] = static_cast<char>(Peek());
  }
  rest[length] = '\0';
}

bool TextFile::SkipFields(int count) {
  char ignored[1];
  for (int i = 0; i < count; ++i) {
    if (!ReadField(ignored, sizeof ignored)) return false;
  }
  return true;
}

bool TextFile::ReadNumber(uint64_t* number) {
  char field[32];
  if (!ReadField(field, sizeof field)) return false;
  char* end = field;
  *number = std::strtoull(field, &end, 10);
  if (end == field || *end != '\0') *number = UINT64_MAX;
  return true;
}

bool TextFile::NextLine() {
  while (Peek() != kEnd && Peek() != '\n') ++next_;
  if (Peek() == kEnd) return false;
  ++next_;
  return Peek() != kEnd;
}

}  // namespace kiv::os
