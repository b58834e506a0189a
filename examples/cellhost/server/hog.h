// Orders to try how the server fares when memory runs short:
//
//   HOG mebibytes
//
// takes so many blocks of 1 MiB, or as many as it is given, and gives them all back.
#ifndef CELLHOST_SERVER_HOG_H
#define CELLHOST_SERVER_HOG_H

#include <stdint.h>

#include <string_view>

#include "cube/text_room.h"
#include "cube/words.h"

namespace cellhost {

constexpr uint32_t kHogMebibytesMax = 1024;

// From a text to an order.
//
//   room       receives its words
//   mebibytes  receives 1 to kHogMebibytesMax
//   fault      set when the text is no order
//
// Whether it is one.
bool ParseHog(std::string_view text, TextRoom* room, uint32_t* mebibytes, Fault* fault);

struct HogOutcome {
  char text[160];
};

// Carries an order out, in the memory of the calling thread's request:
//
//   refused after 52 MiB; warning seen; totals back
//   took 8 MiB; no warning; totals back
//   took 8 MiB; no warning; totals not counted
//
// The library sends no warning shortly after another. Totals are not back when other threads took
// memory meanwhile; such threads may be refused memory too.
HogOutcome Hog(uint32_t mebibytes);

}  // namespace cellhost

#endif
