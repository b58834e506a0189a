#include "os/assertion.h"

#include <cassert>
#include <cstdlib>

namespace kiv::os {

void AssertionFailed(const char* condition, const char* source, uint32_t line) {
  _assert(condition, source, line);
  std::abort();  // the runtime's routine may return under a debugger
}

}  // namespace kiv::os
