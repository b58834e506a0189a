// The cells of a cube; see cell_table.h.
#include "cell_table.h"

#include <string.h>

namespace cellhost {
namespace {

constexpr char kSourceCoordinates[] = "cellhost/cell_table coordinates";
constexpr char kSourceValues[] = "cellhost/cell_table values";
constexpr char kSourceIndex[] = "cellhost/cell_table index";

}  // namespace

CellTable::CellTable()
    : coordinates_(kSourceCoordinates), values_(kSourceValues), index_(kSourceIndex) {}

uint32_t CellTable::FindHashed(uint32_t hash, const uint32_t* coordinates) const {
  return index_.Find(hash, [&](uint32_t cell) {
    return memcmp(CoordinatesOf(cell), coordinates, CoordinatesBytes()) == 0;
  });
}

uint32_t CellTable::Find(const uint32_t* coordinates) const {
  return FindHashed(HashBytes(coordinates, CoordinatesBytes()), coordinates);
}

bool CellTable::Add(const uint32_t* coordinates, double value) {
  const uint32_t hash = HashBytes(coordinates, CoordinatesBytes());
  const uint32_t cell = FindHashed(hash, coordinates);
  if (cell == kNoEntry) return AddNew(hash, coordinates, value);
  values_[cell] += value;
  return true;
}

bool CellTable::AddNew(uint32_t hash, const uint32_t* coordinates, double value) {
  for (uint32_t dimension = 0; dimension < dimensionCount_; ++dimension) {
    if (!coordinates_.Append(coordinates[dimension])) return false;
  }
  return values_.Append(value) && index_.Insert(hash, values_.count() - 1);
}

}  // namespace cellhost
