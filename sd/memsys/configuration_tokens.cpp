#include "memsys/configuration_tokens.h"

namespace kiv {
namespace {

constexpr int kCommentReadBytes = 4096;  // of one read, its terminator included
constexpr char kComment = '#';

// A carriage return is none: a file whose line ends were not translated has words that end in it.
bool IsSeparator(int character) {
  return character == ' ' || character == '\t' || character == '\n';
}

// Skips the rest of a line. Kept: with one read, so that what a longer line has left is words.
bool SkipComment(std::FILE* file) {
  char rest[kCommentReadBytes];
  return std::fgets(rest, kCommentReadBytes, file) != nullptr;
}

}  // namespace

const char* TokenReader::Next() {
  word_.Shorten(0);
  if (!ended_) ended_ = !ReadWord();
  // The end of the file ends a word, too.
  return word_.length() != 0 ? word_.text() : nullptr;
}

// False once there is nothing to read any more.
bool TokenReader::ReadWord() {
  for (;;) {
    const int character = std::fgetc(file_);
    if (character == EOF) return false;
    if (character == kComment) {
      // Kept: what stands before a comment without a space is part of it.
      word_.Shorten(0);
      if (!SkipComment(file_)) return false;
    } else if (IsSeparator(character)) {
      if (word_.length() != 0) return true;
    } else if (!word_.Append(static_cast<char>(character))) {
      word_.Shorten(0);
      return false;
    }
  }
}

}  // namespace kiv
