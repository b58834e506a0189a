// Broken invariants.
#ifndef KIV_OS_ASSERTION_H
#define KIV_OS_ASSERTION_H

#include <cstdint>

namespace kiv::os {

// Reports through the C runtime's own assertion routine, which names the condition, the source
// and the line, and ends the process.
[[noreturn]] void AssertionFailed(const char* condition, const char* source, uint32_t line);

}  // namespace kiv::os

#endif
