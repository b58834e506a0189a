// Copies texts into fixed fields of records, compares texts, and names drives by their letters.
#ifndef KIV_TEXT_H
#define KIV_TEXT_H

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace kiv {

// Copies at most `most` characters of a text into a field, and returns the count copied. The text
// ends at its terminator or after `limit` bytes. The field must be zeroed and longer than `most`:
// it then stays terminated.
inline size_t CopyText(char* field, size_t most, const char* text, size_t limit) {
  size_t length = 0;
  while (length < most && length < limit && text[length] != '\0') ++length;
  std::memcpy(field, text, length);
  return length;
}

// As above, for a terminated text.
inline size_t CopyText(char* field, size_t most, const char* text) {
  return CopyText(field, most, text, static_cast<size_t>(-1));
}

// Converts only the letters A to Z, whatever locale the host has set.
constexpr char LowerCase(char letter) {
  return letter >= 'A' && letter <= 'Z' ? static_cast<char>(letter - 'A' + 'a') : letter;
}

// Whether two texts are equal, or differ only in the case of the letters A to Z.
constexpr bool EqualsIgnoringCase(const char* text, const char* other) {
  while (*text != '\0' && LowerCase(*text) == LowerCase(*other)) {
    ++text;
    ++other;
  }
  return LowerCase(*text) == LowerCase(*other);
}

// Whether a name is "." or "..", a folder's entries for itself and its parent.
constexpr bool IsFolderItselfOrAbove(const char* name) {
  return EqualsIgnoringCase(name, ".") || EqualsIgnoringCase(name, "..");
}

// The letter of a drive; 1 is A.
constexpr char DriveLetter(uint32_t ordinal) { return static_cast<char>('A' - 1 + ordinal); }

}  // namespace kiv

#endif
