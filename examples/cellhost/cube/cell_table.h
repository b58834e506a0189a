// The cells of a cube: one number for each combination of members that occurs.
//
// A cell is a row in two dense arrays that grow by reallocation, its coordinates (one member
// number of each dimension) and its value; a hash index finds it by its coordinates:
//
//   coordinates  | 0 0 1 | 5 0 0 | 2 1 1 | ...
//   values       |  812  |   40  |  3.5  | ...
//
// Cells are added and changed, never taken away. Not locked.
#ifndef CELLHOST_CUBE_CELL_TABLE_H
#define CELLHOST_CUBE_CELL_TABLE_H

#include <stdint.h>

#include "cube/hash_index.h"
#include "host/host_memory.h"

namespace cellhost {

class CellTable {
 public:
  CellTable();

  // How many coordinates a cell has, at least 1. Before the first cell.
  void SetDimensionCount(uint32_t count) { dimensionCount_ = count; }

  // Add a value to the cell at these coordinates, or set the cell to it; the cell is made if there
  // is none. False when there is no memory; the table is then as it was.
  bool Add(const uint32_t* coordinates, double value);
  bool Set(const uint32_t* coordinates, double value);

  // Makes room for the cell at these coordinates, so that the next Set or Add of it, or of a cell
  // that there is, cannot fail. False when there is no memory.
  bool MakeRoomFor(const uint32_t* coordinates);

  // The cell at these coordinates, or kNoEntry.
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
