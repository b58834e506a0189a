// Reports of broken invariants.
#ifndef KIV_OS_ASSERTION_H
#define KIV_OS_ASSERTION_H

#include <cstdint>

namespace kiv::os {

// Calls the C runtime's assertion routine, which prints the condition, the source and the line.
// Ends the process, even if the routine returns.
[[noreturn]] void AssertionFailed(const char* condition, const char* source, uint32_t line);

// Calls the runtime's assertion routine for wide text. Texts are cut to 127 characters. May return
// if a debugger continues the process.
void WideAssertionFailed(const char* condition, const char* source, uint32_t line);

}  // namespace kiv::os

#endif
