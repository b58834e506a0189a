#include "os/clock.h"

#include "os/w32/win32.h"

namespace kiv::os {

// Compatibility: the count wraps at 32 bits, and callers rely on that. GetTickCount64 would not.
uint32_t TickCountMs() { return GetTickCount(); }

ValueResult<int64_t> Counter() {
  LARGE_INTEGER count = {};
  const Result result = FromBool(QueryPerformanceCounter(&count));
  return {result.ok, result.error, count.QuadPart};
}

ValueResult<int64_t> CounterFrequency() {
  LARGE_INTEGER frequency = {};
  const Result result = FromBool(QueryPerformanceFrequency(&frequency));
  return {result.ok, result.error, frequency.QuadPart};
}

}  // namespace kiv::os
