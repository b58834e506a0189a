#include "memsys/configuration_words.h"

#include "text.h"

namespace kiv {
namespace {

// ---- Words ----

constexpr int kCommentReadBytes = 4096;  // of one read, terminator included
constexpr char kComment = '#';

// A carriage return is not a separator: if line ends are not translated, a line's last word ends in
// one.
bool IsSeparator(int character) {
  return character == ' ' || character == '\t' || character == '\n';
}

// Skips the rest of a line. Compatibility: one read of at most 4095 characters, so that the rest of
// a longer comment is read as words. Existing files are read like this.
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
  uint64_t most;  // a larger number counts as kOversized
};
constexpr Unit kUnits[] = {
    {'k', uint64_t{1} << 10, 0x3FFFFFFF},
    {'m', uint64_t{1} << 20, 0xFFFFF},
    {'g', uint64_t{1} << 30, 1023},
};

// White space of scanf. Words never contain space, tab or line feed, but may contain the others.
bool IsWhiteSpace(char character) {
  return character == ' ' || (character >= '\t' && character <= '\r');
}

bool IsDigit(char character) { return character >= '0' && character <= '9'; }

// Scans white space, a sign and digits like scanf's "%I64u" on Windows: the value is taken modulo
// 2^64, and a negative number wraps below 2^64. Returns the text after the number, or null if there
// is no number.
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
  // The end of the file ends the last word.
  return word_.length() != 0 ? word_.text() : nullptr;
}

// Returns false at the end of the file or without memory.
bool TokenReader::ReadWord() {
  for (;;) {
    const int character = std::fgetc(file_);
    if (character == EOF) return false;
    if (character == kComment) {
      // Compatibility: text directly before "#", without a space, belongs to the comment. Existing
      // files are read like this.
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

// Compatibility: the word's length must equal the count of numbers scanned from it, which is 1. A
// byte above 9 is therefore rejected; existing files are read like this.
bool ScanByte(const char* word, uint64_t* value) {
  constexpr size_t kNumbersScanned = 1;
  return ScanNumber(word, value) != nullptr && std::strlen(word) == kNumbersScanned &&
         *value < kByteValues;
}

}  // namespace kiv
