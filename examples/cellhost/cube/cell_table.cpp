// The cells of a cube; see cell_table.h.
#include "cube/cell_table.h"

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
  double* cell = FindOrMake(coordinates);
  if (cell != nullptr) *cell += value;
  return cell != nullptr;
}

bool CellTable::Set(const uint32_t* coordinates, double value) {
  double* cell = FindOrMake(coordinates);
  if (cell != nullptr) *cell = value;
  return cell != nullptr;
}

// Returns a pointer to the cell's value, valid until the next cell is made; null without memory.
double* CellTable::FindOrMake(const uint32_t* coordinates) {
  const uint32_t hash = HashBytes(coordinates, CoordinatesBytes());
  const uint32_t cell = FindHashed(hash, coordinates);
  return cell == kNoEntry ? Make(hash, coordinates) : &values_[cell];
}

bool CellTable::MakeRoomFor(const uint32_t* coordinates) {
  return Find(coordinates) != kNoEntry || MakeRoom();
}

bool CellTable::MakeRoom() {
  return coordinates_.Reserve(coordinates_.count() + dimensionCount_) &&
         values_.Reserve(values_.count() + 1) && index_.MakeRoom();
}

// Makes a cell with value 0. Makes room for all its parts first, so that no failure leaves a part.
double* CellTable::Make(uint32_t hash, const uint32_t* coordinates) {
  if (!MakeRoom()) return nullptr;
  const uint32_t cell = values_.count();
  for (uint32_t dimension = 0; dimension < dimensionCount_; ++dimension) {
    coordinates_.Append(coordinates[dimension]);
  }
  values_.Append(0);
  index_.Insert(hash, cell);
  return &values_[cell];
}

}  // namespace cellhost
