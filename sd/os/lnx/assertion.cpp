#include "os/assertion.h"

// Whatever the build type, the runtime's own report of a failed assertion is needed here.
#undef NDEBUG
#include <cassert>

namespace kiv::os {

void AssertionFailed(const char* condition, const char* source, uint32_t line) {
  __assert_fail(condition, source, line, "kivsdu");
}

}  // namespace kiv::os
