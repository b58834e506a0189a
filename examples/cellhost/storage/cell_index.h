// Places of cells as numbers, for files: a cell's coordinates are the digits of its number, and
// each dimension has as many digits as it has members.
//
//   section 3 of 62, priority 1 of 5, architecture 0 of 2      (3 * 5 + 1) * 2 + 0 = 32
//
// The numbers hold as long as the dimensions have these members in this order, which a fingerprint
// of the cube tells.
#ifndef CELLHOST_STORAGE_CELL_INDEX_H
#define CELLHOST_STORAGE_CELL_INDEX_H

#include <stdint.h>

#include "cube/cube.h"

namespace cellhost {

class CellIndex {
 public:
  // Takes the numbers of members over. False if there are more places than 64 bits can count,
  // which has then been told.
  bool Set(const Cube& cube);

  uint64_t NumberOf(const uint32_t* coordinates) const;

  // The place of a number. False if the cube has no such place.
  bool PlaceOf(uint64_t number, CellPlace* place) const;

 private:
  uint32_t dimensionCount_ = 0;
  uint32_t memberCounts_[kDimensionsMax] = {};
  uint64_t places_ = 0;
};

// Tells cubes apart by the names of their dimensions and members, and the order of these.
uint64_t FingerprintOf(const Cube& cube);

}  // namespace cellhost

#endif
