// A pattern is matched in one pass over the name: the set of the positions in the pattern that the
// name read so far can have reached is advanced by each character. No pattern takes longer than its
// length times that of the name.
#include "os/lnx/file_pattern.h"

#include <cstring>

namespace kiv::os {
namespace {

// Parts of a pattern beside its plain characters, which are below these numbers.
constexpr uint32_t kAny = 0x80000000;       // any characters
constexpr uint32_t kAnyToDot = 0x80000001;  // any characters up to the last dot
constexpr uint32_t kOneOrEnd = 0x80000002;  // one character, or none before a dot or the end
constexpr uint32_t kDotOrEnd = 0x80000003;  // a dot, or the end
constexpr uint32_t kEnd = 0;

bool Continues(char byte) { return (static_cast<unsigned char>(byte) & 0xC0) == 0x80; }

uint32_t LengthByFirst(unsigned char first) {
  if (first >= 0xF0) return 4;
  if (first >= 0xE0) return 3;
  return first >= 0xC0 ? 2 : 1;
}

// Takes one character off the text. Bytes that do not form one are taken singly.
uint32_t TakeCharacter(const char** text) {
  const char* start = *text;
  const uint32_t length = LengthByFirst(static_cast<unsigned char>(*start));
  uint32_t character = static_cast<unsigned char>(*start);
  uint32_t taken = 1;
  while (taken < length && Continues(start[taken])) {
    character = character << 8 | static_cast<unsigned char>(start[taken]);
    ++taken;
  }
  if (taken != length) {
    taken = 1;
    character = static_cast<unsigned char>(*start);
  }
  *text = start + taken;
  return character & 0x7FFFFFFF;
}

// `before` is the part in front of this one, or kEnd.
uint32_t PartOf(const char* text, uint32_t before) {
  const bool endsAfterStar = text[1] == '\0' && before == kAnyToDot;
  switch (*text) {
    case '?':
      return kOneOrEnd;
    case '*':
      return text[1] == '.' ? kAnyToDot : kAny;
    case '.':
      return text[1] == '?' || text[1] == '*' || endsAfterStar ? kDotOrEnd : '.';
    default:
      return kEnd;
  }
}

// Whether a part may be left without a character, in front of `next`.
bool MayBeEmpty(uint32_t part, uint32_t next) {
  if (part == kAny || part == kAnyToDot) return true;
  if (part == kOneOrEnd) return next == kEnd || next == '.';
  return part == kDotOrEnd && next == kEnd;
}

// Whether a part takes a character, and stays ready for more.
bool TakesAndStays(uint32_t part, uint32_t character, bool isLastDot) {
  return part == kAny || (part == kAnyToDot && (character != '.' || !isLastDot));
}

bool TakesAndEnds(uint32_t part, uint32_t character) {
  if (part == kOneOrEnd) return character != '.';
  if (part == kDotOrEnd) return character == '.';
  return part == character;
}

}  // namespace

bool FilePattern::HasWildcards(const char* text) { return std::strpbrk(text, "*?") != nullptr; }

bool FilePattern::Set(const char* text) {
  if (std::strcmp(text, "*.*") == 0) text = "*";
  for (count_ = 0; *text != '\0'; ++count_) {
    if (count_ == kMost) return false;
    parts_[count_] = PartOf(text, count_ == 0 ? kEnd : parts_[count_ - 1]);
    if (parts_[count_] == kEnd) {
      parts_[count_] = TakeCharacter(&text);
    } else {
      ++text;
    }
  }
  return true;
}

bool FilePattern::Matches(const char* name) const {
  bool reached[kMost + 1] = {true};
  const char* lastDot = std::strrchr(name, '.');
  while (true) {
    const bool isLastDot = name == lastDot;
    const uint32_t next = *name == '\0' ? kEnd : TakeCharacter(&name);
    for (uint32_t i = 0; i < count_; ++i) {
      if (reached[i] && MayBeEmpty(parts_[i], next)) reached[i + 1] = true;
    }
    if (next == kEnd) return reached[count_];
    bool after[kMost + 1] = {};
    for (uint32_t i = 0; i < count_; ++i) {
      if (!reached[i]) continue;
      if (TakesAndStays(parts_[i], next, isLastDot)) after[i] = true;
      if (TakesAndEnds(parts_[i], next)) after[i + 1] = true;
    }
    std::memcpy(reached, after, sizeof reached);
  }
}

}  // namespace kiv::os
