// The command HOG, which shows how the server behaves when memory runs short:
//
//   HOG mebibytes
//
// allocates this many blocks of 1 MiB, stops at the first refusal, and frees them all.
#ifndef CELLHOST_SERVER_HOG_H
#define CELLHOST_SERVER_HOG_H

#include <stdint.h>

#include <string_view>

#include "host/text_room.h"
#include "host/words.h"

namespace cellhost {

constexpr uint32_t kHogMebibytesMax = 1024;

// Parses the command.
//
//   room       receives the command's words
//   mebibytes  receives 1 to kHogMebibytesMax
//   fault      set if the text is not a valid command
//
// Returns whether the text is valid.
bool ParseHog(std::string_view text, TextRoom* room, uint32_t* mebibytes, Fault* fault);

struct HogOutcome {
  char text[160];
};

// Carries the command out, in the memory of the calling thread's request. The outcome is one of:
//
//   refused after 52 MiB; warning seen; totals back
//   took 8 MiB; no warning; totals back
//   took 8 MiB; no warning; totals not counted
//
// "no warning" is also the outcome shortly after an earlier warning, because the library throttles
// them. "totals higher by ... bytes" appears if other threads allocated memory meanwhile. At the
// limit, other threads are refused memory, too.
HogOutcome Hog(uint32_t mebibytes);

}  // namespace cellhost

#endif
