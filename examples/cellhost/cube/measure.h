// Measures as they are written in facts and orders.
#ifndef CELLHOST_CUBE_MEASURE_H
#define CELLHOST_CUBE_MEASURE_H

#include <string_view>

namespace cellhost {

// Reads a number such as 12, -3.5 or 1e3.
//
//   measure  receives it; left alone if the text is no number, or one without bounds, which would
//            spoil every sum
//
// Whether it is one. Any thread.
bool ReadMeasure(std::string_view text, double* measure);

}  // namespace cellhost

#endif
