// Loads a CSV file into a cube. The first row names the columns: the last is the measure, the
// others are dimensions. Each further row adds its measure to a cell.
#ifndef CELLHOST_CUBE_FACT_LOADER_H
#define CELLHOST_CUBE_FACT_LOADER_H

#include <stdint.h>

#include "cube/cube.h"

namespace cellhost {

struct LoadResult {
  uint64_t rows;
  uint64_t fileBytes;
  uint32_t elapsedUs;
};

// Which parts of the facts to load: kNames loads dimensions and members, but no cell.
enum class FactParts { kAll, kNames };

// Loads a file into an empty cube. Returns false at the first bad row, after reporting it with its
// line; the cube is then unusable.
bool LoadFacts(const char* path, FactParts parts, Cube* cube, LoadResult* result);

}  // namespace cellhost

#endif
