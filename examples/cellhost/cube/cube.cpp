// Parts of a cube together; see cube.h.
#include "cube/cube.h"

namespace cellhost {

bool Cube::AddDimension(std::string_view name) {
  std::string_view kept;
  if (!names_.Push(name, &kept)) return false;
  dimensions_[dimensionCount_++].SetName(kept);
  cells_.SetDimensionCount(dimensionCount_);
  return true;
}

bool Cube::NumberMembers(const std::string_view* members, uint32_t* coordinates) {
  for (uint32_t at = 0; at < dimensionCount_; ++at) {
    if (!dimensions_[at].FindOrAdd(members[at], &names_, &coordinates[at])) return false;
  }
  return true;
}

bool Cube::AddFact(const std::string_view* members, double value) {
  uint32_t coordinates[kDimensionsMax];
  return NumberMembers(members, coordinates) && cells_.Add(coordinates, value);
}

bool Cube::AddMembers(const std::string_view* members) {
  uint32_t coordinates[kDimensionsMax];
  return NumberMembers(members, coordinates);
}

CellPlace Cube::Locate(const std::string_view* members) const {
  CellPlace place = {.unknownIn = kNoEntry, .coordinates = {}};
  for (uint32_t at = 0; at < dimensionCount_ && place.known(); ++at) {
    place.coordinates[at] = dimensions_[at].Find(members[at]);
    if (place.coordinates[at] == kNoEntry) place.unknownIn = at;
  }
  return place;
}

uint32_t Cube::FindDimension(std::string_view name) const {
  for (uint32_t at = 0; at < dimensionCount_; ++at) {
    if (dimensions_[at].name() == name) return at;
  }
  return kNoEntry;
}

uint64_t Cube::bytesHeld() const {
  uint64_t bytes = names_.bytesPushed() + cells_.bytesHeld();
  for (uint32_t at = 0; at < dimensionCount_; ++at) bytes += dimensions_[at].bytesHeld();
  return bytes;
}

}  // namespace cellhost
