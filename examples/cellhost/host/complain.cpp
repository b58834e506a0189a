// Messages on the error output; see complain.h.
#include "host/complain.h"

#include <stdarg.h>
#include <stdio.h>

#include "host/status_text.h"

namespace cellhost {
namespace {

constexpr uint32_t kOsErrorTextBytes = 12;  // any 32-bit number with its sign

void WriteMessage(const char* format, va_list values) {
  vfprintf(stderr, format, values);
  fputc('\n', stderr);
}

}  // namespace

bool Complain(const char* format, ...) {
  va_list values;
  va_start(values, format);
  fflush(stdout);
  fputs("cellhost: ", stderr);
  WriteMessage(format, values);
  va_end(values);
  return false;
}

bool ComplainAt(const char* path, uint64_t line, const char* format, ...) {
  va_list values;
  va_start(values, format);
  fflush(stdout);
  fprintf(stderr, "%s:%lu: ", path, static_cast<unsigned long>(line));
  WriteMessage(format, values);
  va_end(values);
  return false;
}

Reason ReasonOf(const KivSdContext* ctx, uint32_t status) {
  Reason reason;
  char osError[kOsErrorTextBytes] = "";
  // If the context holds another status, its OS error belongs to another operation.
  const bool recorded = ctx != nullptr && ctx->status == status && ctx->osError != 0 &&
                        KivSdLastErrGet(ctx, sizeof osError, osError, nullptr) == 0;
  snprintf(reason.text, sizeof reason.text, "%s (%u)%s%s", StatusName(status), status,
           recorded ? ", OS error " : "", osError);
  return reason;
}

bool Succeeded(const KivSdContext* ctx, uint32_t status, const char* what) {
  if (status == 0) return true;
  return Complain("could not %s: %s", what, ReasonOf(ctx, status).text);
}

}  // namespace cellhost
