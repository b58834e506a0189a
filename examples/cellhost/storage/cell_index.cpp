// Places as numbers; see cell_index.h.
#include "storage/cell_index.h"

#include "host/complain.h"
#include "storage/checksum.h"

namespace cellhost {
namespace {

uint64_t AddName(std::string_view name, uint64_t sum) {
  const uint64_t length = name.size();  // or "ab" and "c" would be as "a" and "bc"
  return ChecksumOf(name.data(), length, ChecksumOf(&length, sizeof length, sum));
}

uint64_t AddDimension(const Dimension& dimension, uint64_t sum) {
  const uint32_t members = dimension.memberCount();
  sum = ChecksumOf(&members, sizeof members, AddName(dimension.name(), sum));
  for (uint32_t at = 0; at < members; ++at) sum = AddName(dimension.member(at), sum);
  return sum;
}

}  // namespace

bool CellIndex::Set(const Cube& cube) {
  dimensionCount_ = cube.dimensionCount();
  places_ = 1;
  for (uint32_t at = 0; at < dimensionCount_; ++at) {
    memberCounts_[at] = cube.dimension(at).memberCount();
    if (memberCounts_[at] != 0 && places_ > UINT64_MAX / memberCounts_[at]) {
      return Complain(
          "the cube has more places than 64 bits can count, too many for files; load "
          "facts of fewer dimensions, or serve without --data");
    }
    places_ *= memberCounts_[at];
  }
  return true;
}

uint64_t CellIndex::NumberOf(const uint32_t* coordinates) const {
  uint64_t number = 0;
  for (uint32_t at = 0; at < dimensionCount_; ++at) {
    number = number * memberCounts_[at] + coordinates[at];
  }
  return number;
}

bool CellIndex::PlaceOf(uint64_t number, CellPlace* place) const {
  *place = {.unknownIn = kNoEntry, .coordinates = {}};
  if (number >= places_) return false;
  for (uint32_t at = dimensionCount_; at-- != 0;) {
    place->coordinates[at] = static_cast<uint32_t>(number % memberCounts_[at]);
    number /= memberCounts_[at];
  }
  return true;
}

uint64_t FingerprintOf(const Cube& cube) {
  uint64_t sum = kChecksumStart;
  for (uint32_t at = 0; at < cube.dimensionCount(); ++at) {
    sum = AddDimension(cube.dimension(at), sum);
  }
  return sum;
}

}  // namespace cellhost
