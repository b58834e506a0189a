#include "os/clock.h"

#include "support/lnx/seam_import.h"
#include "support/system_interface.h"

namespace kiv::test {

using os::Result;
using os::ValueResult;

KIV_SEAM_PRIMITIVE(TickCountMs, "_ZN3kiv2os11TickCountMsEv")
KIV_SEAM_PRIMITIVE(Counter, "_ZN3kiv2os7CounterEv")
KIV_SEAM_PRIMITIVE(CounterFrequency, "_ZN3kiv2os16CounterFrequencyEv")

namespace {

DWORD GetTickCount() { return RealTickCountMs(); }

BOOL StoreCount(const ValueResult<int64_t>& count, LARGE_INTEGER* stored) {
  stored->QuadPart = count.value;
  return ToBool({count.ok, count.error});
}

BOOL QueryPerformanceCounter(LARGE_INTEGER* count) { return StoreCount(RealCounter(), count); }

BOOL QueryPerformanceFrequency(LARGE_INTEGER* frequency) {
  return StoreCount(RealCounterFrequency(), frequency);
}

SeamImport<decltype(GetTickCount)> getTickCount("GetTickCount", GetTickCount);
SeamImport<decltype(QueryPerformanceCounter)> queryCounter("QueryPerformanceCounter",
                                                           QueryPerformanceCounter);
SeamImport<decltype(QueryPerformanceFrequency)> queryFrequency("QueryPerformanceFrequency",
                                                               QueryPerformanceFrequency);

template <typename Import>
ValueResult<int64_t> Query(const Import& import) {
  LARGE_INTEGER number = {};
  const Result result = FromBool(import.Call(&number));
  return {result.ok, result.error, number.QuadPart};
}

}  // namespace

uint32_t WrapTickCountMs() { return getTickCount.Call(); }
ValueResult<int64_t> WrapCounter() { return Query(queryCounter); }
ValueResult<int64_t> WrapCounterFrequency() { return Query(queryFrequency); }

}  // namespace kiv::test
