#include "os/calendar.h"

#include "support/lnx/seam_import.h"
#include "support/system_interface.h"

namespace kiv::test {

using os::ValueResult;
using os::WallClock;

KIV_SEAM_PRIMITIVE(ProcessClock, "_ZN3kiv2os12ProcessClockEv")
KIV_SEAM_PRIMITIVE(WallClockSeconds, "_ZN3kiv2os16WallClockSecondsEv")
KIV_SEAM_PRIMITIVE(WallClockMs, "_ZN3kiv2os11WallClockMsEv")
KIV_SEAM_PRIMITIVE(LocalTime, "_ZN3kiv2os9LocalTimeEl")
KIV_SEAM_PRIMITIVE(TimeText, "_ZN3kiv2os8TimeTextERK2tm")
KIV_SEAM_PRIMITIVE(LocalTimeText, "_ZN3kiv2os13LocalTimeTextEl")

namespace {

uint32_t RuntimeError() { return static_cast<uint32_t>(errno); }

int32_t Clock() {
  const ValueResult<uint32_t> ticks = RealProcessClock();
  StoreError({ticks.ok, ticks.error});
  return ticks.ok ? static_cast<int32_t>(ticks.value) : -1;
}

int64_t _time64(int64_t*) { return RealWallClockSeconds(); }

void _ftime64(__timeb64* now) {
  const WallClock clock = RealWallClockMs();
  *now = {clock.seconds, clock.milliseconds, 0, 0};
}

tm* _localtime64(const int64_t* seconds) {
  thread_local tm broken;
  const ValueResult<tm> time = RealLocalTime(*seconds);
  StoreError({time.ok, time.error});
  broken = time.value;
  return time.ok ? &broken : nullptr;
}

const char* Asctime(const tm* time) { return ToValue(RealTimeText(*time)); }

const char* _ctime64(const int64_t* seconds) { return ToValue(RealLocalTimeText(*seconds)); }

SeamImport<decltype(Clock)> clockImport("clock", Clock);
SeamImport<decltype(_time64)> timeImport("_time64", _time64);
SeamImport<decltype(_ftime64)> ftimeImport("_ftime64", _ftime64);
SeamImport<decltype(_localtime64)> localtimeImport("_localtime64", _localtime64);
SeamImport<decltype(Asctime)> asctimeImport("asctime", Asctime);
SeamImport<decltype(_ctime64)> ctimeImport("_ctime64", _ctime64);

ValueResult<const char*> FromText(const char* text) {
  if (text != nullptr) return {true, 0, text};
  return {false, RuntimeError(), nullptr};
}

}  // namespace

ValueResult<uint32_t> WrapProcessClock() {
  const int32_t ticks = clockImport.Call();
  if (ticks == -1) return {false, RuntimeError(), 0};
  return {true, 0, static_cast<uint32_t>(ticks)};
}

int64_t WrapWallClockSeconds() { return timeImport.Call(nullptr); }

WallClock WrapWallClockMs() {
  __timeb64 now = {};
  ftimeImport.Call(&now);
  return {now.time, now.millitm};
}

ValueResult<tm> WrapLocalTime(int64_t seconds) {
  const tm* broken = localtimeImport.Call(&seconds);
  if (broken == nullptr) return {false, RuntimeError(), {}};
  return {true, 0, *broken};
}

ValueResult<const char*> WrapTimeText(const tm& time) {
  return FromText(asctimeImport.Call(&time));
}

ValueResult<const char*> WrapLocalTimeText(int64_t seconds) {
  return FromText(ctimeImport.Call(&seconds));
}

}  // namespace kiv::test
