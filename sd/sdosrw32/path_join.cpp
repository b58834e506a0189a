// Joining the parts of a path.
#include <cstdarg>
#include <cstring>

#include "kivsdu/path.h"
#include "lease_guard.h"
#include "report.h"

using namespace kiv;

uint32_t KivSdPathCreate(KivSdContext* ctx, uint16_t count, char* out, ...) {
  RunLeaseGuard();
  if (out == nullptr) return Report(ctx, KIV_ST_ARGUMENT);
  va_list parts;
  va_start(parts, out);
  char* end = out;
  *end = '\0';
  for (uint32_t i = 0; i < count; ++i) {
    // The analyzer does not know this platform's va_start.
    // NOLINTNEXTLINE(clang-analyzer-valist.Uninitialized)
    const char* part = va_arg(parts, const char*);
    if (part == nullptr) continue;
    const size_t length = std::strlen(part);
    std::memcpy(end, part, length + 1);
    end += length;
  }
  va_end(parts);
  return Report(ctx, KIV_ST_OK);
}
