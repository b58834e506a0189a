// Parses the numbers of facts and orders.
#ifndef CELLHOST_CUBE_MEASURE_H
#define CELLHOST_CUBE_MEASURE_H

#include <string_view>

namespace cellhost {

// Reads a number such as 12, -3.5 or 1e3.
//
//   measure  receives the number; unchanged on failure
//
// Returns false if the text is not a number, or not a finite number, which would spoil every sum.
// Any thread.
bool ReadMeasure(std::string_view text, double* measure);

}  // namespace cellhost

#endif
