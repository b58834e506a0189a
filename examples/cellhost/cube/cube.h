// A cube: the dimensions, the stack of all their names, and the cells. One thread fills it; then
// any number of threads may read it. CellCache allows changing cells meanwhile.
#ifndef CELLHOST_CUBE_CUBE_H
#define CELLHOST_CUBE_CUBE_H

#include <stdint.h>

#include <string_view>

#include "cube/cell_table.h"
#include "cube/dimension.h"
#include "host/text_stack.h"

namespace cellhost {

constexpr uint32_t kDimensionsMax = 16;

// The place of an existing or possible cell.
struct CellPlace {
  uint32_t unknownIn;  // first dimension that lacks the named member; kNoEntry if none does
  uint32_t coordinates[kDimensionsMax];  // valid if known()

  bool known() const { return unknownIn == kNoEntry; }
};

class Cube {
 public:
  // Adds a dimension. Call it before the first fact, at most kDimensionsMax times. Returns false
  // without memory.
  bool AddDimension(std::string_view name);

  // Adds a value to a cell.
  //
  //   members  one of each dimension, in order; unknown members are added
  bool AddFact(const std::string_view* members, double value);

  // Adds the unknown members, and no cell.
  bool AddMembers(const std::string_view* members);

  // Finds a cell's place.
  //
  //   members  one of each dimension, in order
  CellPlace Locate(const std::string_view* members) const;

  // Stores a value in the cell at a known place; makes the cell if needed. Returns false without
  // memory; the cube is then unchanged.
  bool SetCell(const CellPlace& place, double value) {
    return cells_.Set(place.coordinates, value);
  }

  // Makes room for the cell at a known place: the next SetCell there cannot fail. Returns false
  // without memory.
  bool MakeRoomFor(const CellPlace& place) { return cells_.MakeRoomFor(place.coordinates); }

  // Returns the number of a dimension, or kNoEntry.
  uint32_t FindDimension(std::string_view name) const;

  uint32_t dimensionCount() const { return dimensionCount_; }
  const Dimension& dimension(uint32_t number) const { return dimensions_[number]; }
  const CellTable& cells() const { return cells_; }
  uint64_t bytesHeld() const;

 private:
  bool NumberMembers(const std::string_view* members, uint32_t* coordinates);

  TextStack names_;
  Dimension dimensions_[kDimensionsMax];
  uint32_t dimensionCount_ = 0;
  CellTable cells_;
};

}  // namespace cellhost

#endif
