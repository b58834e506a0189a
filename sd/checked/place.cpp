#include "checked/place.h"

#include <cstring>

namespace kiv::checked {

Place MakePlace(const char* file, uint32_t line) {
  Place place = {};
  if (file == nullptr) file = "(unknown)";
  const size_t length = std::strlen(file);
  const size_t kept = length < kPlaceCharacters ? length : kPlaceCharacters - 1;
  std::memcpy(place.file, file + (length - kept), kept);
  place.line = line;
  return place;
}

bool operator==(const Place& one, const Place& other) {
  return one.line == other.line && std::strcmp(one.file, other.file) == 0;
}

}  // namespace kiv::checked
