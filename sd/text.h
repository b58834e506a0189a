// Copying texts into fixed fields of records, and comparing them.
#ifndef KIV_TEXT_H
#define KIV_TEXT_H

#include <cstddef>
#include <cstring>

namespace kiv {

// Copies at most `most` characters of a text of at most `limit` bytes (terminated or not) into a
// field that is zeroed and longer than that, and so stays terminated. Gives the count copied.
inline size_t CopyText(char* field, size_t most, const char* text, size_t limit) {
  size_t length = 0;
  while (length < most && length < limit && text[length] != '\0') ++length;
  std::memcpy(field, text, length);
  return length;
}

// The same for a terminated text.
inline size_t CopyText(char* field, size_t most, const char* text) {
  return CopyText(field, most, text, static_cast<size_t>(-1));
}

// Of the letters A to Z alone, whatever locale the host has set.
constexpr char LowerCase(char letter) {
  return letter >= 'A' && letter <= 'Z' ? static_cast<char>(letter - 'A' + 'a') : letter;
}

// Whether two texts differ in the case of their letters at most.
constexpr bool EqualsIgnoringCase(const char* text, const char* other) {
  while (*text != '\0' && LowerCase(*text) == LowerCase(*other)) {
    ++text;
    ++other;
  }
  return LowerCase(*text) == LowerCase(*other);
}

// Whether a name is one of the two entries that every folder has for itself and for its parent.
constexpr bool IsFolderItselfOrAbove(const char* name) {
  return EqualsIgnoringCase(name, ".") || EqualsIgnoringCase(name, "..");
}

}  // namespace kiv

#endif
