// A cube: the dimensions, the stack with all their names, and the cells. Filled by one thread;
// then any number of them may read, and cell_cache.h lets some of them change cells meanwhile.
#ifndef CELLHOST_CUBE_CUBE_H
#define CELLHOST_CUBE_CUBE_H

#include <stdint.h>

#include <string_view>

#include "cube/cell_table.h"
#include "cube/dimension.h"
#include "cube/text_stack.h"

namespace cellhost {

constexpr uint32_t kDimensionsMax = 16;

// Where a cell is, or would be.
struct CellPlace {
  uint32_t unknownIn;  // the first dimension without the member that was named; kNoEntry if all
                       // have theirs, and only then the rest means something
  uint32_t coordinates[kDimensionsMax];

  bool known() const { return unknownIn == kNoEntry; }
};

class Cube {
 public:
  // Adds a dimension; before the first fact, at most kDimensionsMax. False when there is no
  // memory.
  bool AddDimension(std::string_view name);

  // Adds a value to a cell.
  //
  //   members  one of each dimension, in order; new ones are added
  bool AddFact(const std::string_view* members, double value);

  // Adds the members that are new, and no cell.
  bool AddMembers(const std::string_view* members);

  // Finds a cell's place.
  //
  //   members  one of each dimension, in order
  CellPlace Locate(const std::string_view* members) const;

  // Sets the cell at a known place, which is made if there is none. False when there is no memory;
  // the cube is then as it was.
  bool SetCell(const CellPlace& place, double value) {
    return cells_.Set(place.coordinates, value);
  }

  // Makes room for the cell at a known place, so that the next SetCell there cannot fail. False
  // when there is no memory.
  bool MakeRoomFor(const CellPlace& place) { return cells_.MakeRoomFor(place.coordinates); }

  // The number of a dimension, or kNoEntry.
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
