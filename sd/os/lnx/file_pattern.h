// Patterns of file names, with the rules of Windows except that case counts:
//
//   *     any characters
//   ?     one character; at the end of the name, and in front of a dot, also none
//   *.    (a star followed by a dot) any characters up to the name's last dot
//   .* .? the dot is also matched by the end of the name. "*.*" therefore matches every name, and
//         "*." every name without a dot
//
// A character is one of UTF-8; a byte that is not UTF-8 counts as a character.
#ifndef KIV_OS_LNX_FILE_PATTERN_H
#define KIV_OS_LNX_FILE_PATTERN_H

#include <cstdint>

namespace kiv::os {

class FilePattern {
 public:
  static constexpr uint32_t kMost = 259;  // characters, and bytes of a name

  // Returns false if the text is too long.
  bool Set(const char* text);

  bool Matches(const char* name) const;

  static bool HasWildcards(const char* text);

 private:
  uint32_t parts_[kMost];
  uint32_t count_ = 0;
};

}  // namespace kiv::os

#endif
