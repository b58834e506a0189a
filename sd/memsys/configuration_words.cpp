#include "memsys/configuration_words.h"

#include "text.h"

namespace kiv {
namespace {

// ---- Words ----

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

// ---- Numbers ----

constexpr uint64_t kOversized = uint64_t{1} << 40;
constexpr uint64_t kByteValues = 256;

struct Unit {
  char letter;
  uint64_t sizeBytes;
  uint64_t most;  // larger numbers are oversized
};
constexpr Unit kUnits[] = {
    {'k', uint64_t{1} << 10, 0x3FFFFFFF},
    {'m', uint64_t{1} << 20, 0xFFFFF},
    {'g', uint64_t{1} << 30, 1023},
};

// Of what separates words, the tokens have taken space, tab and line feed away.
bool IsWhiteSpace(char character) {
  return character == ' ' || (character >= '\t' && character <= '\r');
}

bool IsDigit(char character) { return character >= '0' && character <= '9'; }

// Scans white space, a sign and digits, as scanf's "%I64u" does on Windows: a longer number loses
// its upper digits, and a negative one is counted back from 2^64. Gives what stands behind it, or
// null if there is no number.
const char* ScanNumber(const char* text, uint64_t* number) {
  while (IsWhiteSpace(*text)) ++text;
  const bool negative = *text == '-';
  if (negative || *text == '+') ++text;
  if (!IsDigit(*text)) return nullptr;
  uint64_t value = 0;
  for (; IsDigit(*text); ++text) value = value * 10 + static_cast<uint64_t>(*text - '0');
  *number = negative ? 0 - value : value;
  return text;
}

const Unit* FindUnit(char letter) {
  for (const Unit& unit : kUnits) {
    if (unit.letter == LowerCase(letter)) return &unit;
  }
  return nullptr;
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

bool ScanSize(const char* word, uint64_t* value) {
  uint64_t number = 0;
  const char* rest = ScanNumber(word, &number);
  if (rest == nullptr) return false;
  if (*rest == '\0') {
    *value = number;
    return true;
  }
  const Unit* unit = FindUnit(*rest);
  if (unit == nullptr || rest[1] != '\0' || number == 0) return false;
  *value = number <= unit->most ? number * unit->sizeBytes : kOversized;
  return true;
}

// Kept, for the files there are: the length of the word is compared with the count of numbers
// scanned from it. That is 1, so a byte above 9 cannot be written.
bool ScanByte(const char* word, uint64_t* value) {
  constexpr size_t kNumbersScanned = 1;
  return ScanNumber(word, value) != nullptr && std::strlen(word) == kNumbersScanned &&
         *value < kByteValues;
}

}  // namespace kiv
