#include "os/assertion.h"

// <cassert> declares __assert_fail only without NDEBUG.
#undef NDEBUG
#include <cassert>

namespace kiv::os {

void AssertionFailed(const char* condition, const char* source, uint32_t line) {
  __assert_fail(condition, source, line, "kivsdu");
}

void WideAssertionFailed(const char* condition, const char* source, uint32_t line) {
  AssertionFailed(condition, source, line);
}

}  // namespace kiv::os
