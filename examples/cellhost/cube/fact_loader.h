// Fills a cube from a CSV file. Its first row names the columns: all but the last are
// dimensions, the last is the measure. Every further row adds its number to a cell.
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

// What of the facts gets into the cube: all, or the dimensions and their members without any cell.
enum class FactParts { kAll, kNames };

// Loads a file into an empty cube. False at the first bad row, which has then been told with its
// line; the cube is of no use then.
bool LoadFacts(const char* path, FactParts parts, Cube* cube, LoadResult* result);

}  // namespace cellhost

#endif
