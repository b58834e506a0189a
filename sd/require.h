// Invariants whose breach is a programming error of the host.
#ifndef KIV_REQUIRE_H
#define KIV_REQUIRE_H

#include "os/assertion.h"

namespace kiv {

// Ends the process through the runtime's assertion unless the condition holds. The text, source
// and line are what hosts see in their logs: they are given as they are to appear, and stay the
// same when the code around them moves.
inline void Require(bool holds, const char* condition, const char* source, uint32_t line) {
  if (!holds) os::AssertionFailed(condition, source, line);
}

}  // namespace kiv

#endif
