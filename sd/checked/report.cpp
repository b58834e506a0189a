#include "checked/report.h"

#include <cstdarg>
#include <cstdio>

#include "checked/gate.h"
#include "os/assertion.h"

namespace kiv::checked {

std::atomic<bool> Gate::closed_;

void Fail(const Place& place, const char* format, ...) {
  char text[512];
  va_list values;
  va_start(values, format);
  std::vsnprintf(text, sizeof text, format, values);
  va_end(values);
  os::AssertionFailed(text, place.file, place.line);
}

}  // namespace kiv::checked
