#include "os/clock.h"

#include "os/w32/win32.h"

namespace kiv::os {

// Compatibility: the 32-bit count that wraps, not GetTickCount64. The seconds that callers read
// wrap with it.
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
