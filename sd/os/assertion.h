// Broken invariants.
#ifndef KIV_OS_ASSERTION_H
#define KIV_OS_ASSERTION_H

#include <cstdint>

namespace kiv::os {

// Reports through the C runtime's own assertion routine, which names the condition, the source
// and the line, and ends the process.
[[noreturn]] void AssertionFailed(const char* condition, const char* source, uint32_t line);

// The same through the runtime's routine for wide text, for texts of at most 127 plain characters.
// May return, if a debugger says so.
void WideAssertionFailed(const char* condition, const char* source, uint32_t line);

}  // namespace kiv::os

#endif
