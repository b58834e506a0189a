// A position in the host's sources: the file and line that it passes to an operation.
#ifndef KIV_CHECKED_PLACE_H
#define KIV_CHECKED_PLACE_H

#include <cstdint>

namespace kiv::checked {

constexpr uint32_t kPlaceCharacters = 44;

// A copy, because the text may lie in a module that is unloaded before the report. Keeps the end
// of a name that is too long.
struct Place {
  char file[kPlaceCharacters];
  uint32_t line;
};

// A null file becomes "(unknown)".
Place MakePlace(const char* file, uint32_t line);

bool operator==(const Place& one, const Place& other);

}  // namespace kiv::checked

#endif
