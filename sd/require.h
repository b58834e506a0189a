// Checks whose failure is a programming error of the host.
#ifndef KIV_REQUIRE_H
#define KIV_REQUIRE_H

#include "os/assertion.h"

namespace kiv {

// Ends the process through the runtime's assertion unless the condition holds. Hosts see the text,
// source and line in their logs. All three are constants that stay as they are when the code around
// them changes.
inline void Require(bool holds, const char* condition, const char* source, uint32_t line) {
  if (!holds) os::AssertionFailed(condition, source, line);
}

}  // namespace kiv

#endif
