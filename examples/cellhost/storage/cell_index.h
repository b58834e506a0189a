// Numbers the places of cells, for files. A cell's coordinates are the digits of its number; the
// base of each digit is the number of members of that dimension.
//
//   section 3 of 62, priority 1 of 5, architecture 0 of 2      (3 * 5 + 1) * 2 + 0 = 32
//
// The numbers are valid while the dimensions have the same members in the same order. A fingerprint
// of the cube checks this.
#ifndef CELLHOST_STORAGE_CELL_INDEX_H
#define CELLHOST_STORAGE_CELL_INDEX_H

#include <stdint.h>

#include "cube/cube.h"

namespace cellhost {

class CellIndex {
 public:
  // Copies the numbers of members. Returns false if 64 bits cannot count the places, after
  // reporting it.
  bool Set(const Cube& cube);

  uint64_t NumberOf(const uint32_t* coordinates) const;

  // Finds the place of a number. Returns false if the cube has no such place.
  bool PlaceOf(uint64_t number, CellPlace* place) const;

 private:
  uint32_t dimensionCount_ = 0;
  uint32_t memberCounts_[kDimensionsMax] = {};
  uint64_t places_ = 0;
};

// Returns a fingerprint of the names of a cube's dimensions and members, and of their order.
uint64_t FingerprintOf(const Cube& cube);

}  // namespace cellhost

#endif
