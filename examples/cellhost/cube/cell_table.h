// The cells of a cube: one number for each combination of members that occurs.
//
// Two dense arrays hold the cells and grow by reallocation: one the coordinates (a member number of
// each dimension), the other the values. A hash index finds a cell by its coordinates:
//
//   coordinates  | 0 0 1 | 5 0 0 | 2 1 1 | ...
//   values       |  812  |   40  |  3.5  | ...
//
// Cells are added and changed, never removed. Not locked.
#ifndef CELLHOST_CUBE_CELL_TABLE_H
#define CELLHOST_CUBE_CELL_TABLE_H

#include <stdint.h>

#include "cube/hash_index.h"
#include "host/host_memory.h"

namespace cellhost {

class CellTable {
 public:
  CellTable();

  // Sets the number of coordinates of a cell, at least 1. Call it before the first cell.
  void SetDimensionCount(uint32_t count) { dimensionCount_ = count; }

  // Add adds a value to the cell at these coordinates; Set stores the value there. Both make the
  // cell if needed. They return false without memory; the table is then unchanged.
  bool Add(const uint32_t* coordinates, double value);
  bool Set(const uint32_t* coordinates, double value);

  // Makes room for the cell at these coordinates: the next Set or Add of it, or of an existing
  // cell, cannot fail. Returns false without memory.
  bool MakeRoomFor(const uint32_t* coordinates);

  // Returns the number of the cell at these coordinates, or kNoEntry.
  uint32_t Find(const uint32_t* coordinates) const;

  uint32_t count() const { return values_.count(); }
  double value(uint32_t cell) const { return values_[cell]; }
  uint32_t coordinate(uint32_t cell, uint32_t dimension) const {
    return CoordinatesOf(cell)[dimension];
  }
  const uint32_t* coordinates(uint32_t cell) const { return CoordinatesOf(cell); }
  uint64_t bytesHeld() const {
    return coordinates_.bytesHeld() + values_.bytesHeld() + index_.bytesHeld();
  }

 private:
  const uint32_t* CoordinatesOf(uint32_t cell) const {
    return coordinates_.data() + uint64_t{cell} * dimensionCount_;
  }
  uint64_t CoordinatesBytes() const { return uint64_t{dimensionCount_} * sizeof(uint32_t); }
  uint32_t FindHashed(uint32_t hash, const uint32_t* coordinates) const;
  double* FindOrMake(const uint32_t* coordinates);
  double* Make(uint32_t hash, const uint32_t* coordinates);
  bool MakeRoom();

  uint32_t dimensionCount_ = 0;
  HostArray<uint32_t> coordinates_;
  HostArray<double> values_;
  HashIndex index_;
};

}  // namespace cellhost

#endif
