// Reading measures; see measure.h.
#include "cube/measure.h"

#include <stdint.h>

#include <charconv>

#include "host/complain.h"
#include "host/thread_record.h"
#include "kivsdu/system.h"

namespace cellhost {

bool ReadMeasure(std::string_view text, double* measure) {
  const char* end = text.data() + text.size();
  double number = 0;
  const auto [stop, error] = std::from_chars(text.data(), end, number);
  if (error != std::errc() || stop != end) return false;
  // from_chars also accepts "inf" and "nan".
  uint8_t infinite = 1;
  KivSdContext* ctx = ThisContext();
  Succeeded(ctx, KivSdIsInfinite(ctx, number, &infinite), "check a number");
  if (infinite != 0) return false;
  *measure = number;
  return true;
}

}  // namespace cellhost
