#include "os/thread.h"

#include "os/kernel_objects.h"

#include "support/lnx/seam_import.h"

namespace kiv::test {

using os::Result;
using os::ThreadRoutine;
using os::ValueResult;

constexpr uint32_t kWaitFailed = 0xFFFFFFFF;

KIV_SEAM_PRIMITIVE(StartThread, "_ZN3kiv2os11StartThreadEPFjPvES1_jPj")
KIV_SEAM_PRIMITIVE(JoinThread, "_ZN3kiv2os10JoinThreadEPv")
KIV_SEAM_PRIMITIVE(CloseThread, "_ZN3kiv2os11CloseThreadEPv")
KIV_SEAM_PRIMITIVE(SleepMs, "_ZN3kiv2os7SleepMsEj")

namespace {

void* CreateThread(void*, uintptr_t stackBytes, ThreadRoutine routine, void* argument, uint32_t,
                   uint32_t* id) {
  return ToValue(RealStartThread(routine, argument, static_cast<uint32_t>(stackBytes), id));
}

uint32_t JoinObject(void* thread, uint32_t) {
  const Result joined = RealJoinThread(thread);
  StoreError(joined);
  return joined.ok ? os::kWaitSignalled : kWaitFailed;
}

int32_t CloseHandle(void* thread) { return ToBool(RealCloseThread(thread)); }

void Sleep(uint32_t timeMs) { RealSleepMs(timeMs); }

SeamImport<decltype(CreateThread)> createThread("CreateThread", CreateThread);
SeamImport<decltype(JoinObject)> joinObject("WaitForSingleObject", JoinObject);
SeamImport<decltype(CloseHandle)> closeHandle("CloseHandle", CloseHandle);
SeamImport<decltype(Sleep)> sleep("Sleep", Sleep);

}  // namespace

ValueResult<void*> WrapStartThread(ThreadRoutine routine, void* argument, uint32_t stackBytes,
                                   uint32_t* id) {
  return FromPointer(createThread.Call(nullptr, uintptr_t{stackBytes}, routine, argument, 0u, id));
}

Result WrapJoinThread(void* thread) {
  return {joinObject.Call(thread, os::kWaitForEver) == os::kWaitSignalled, SeamLastError()};
}

Result WrapCloseThread(void* thread) { return FromBool(closeHandle.Call(thread)); }

void WrapSleepMs(uint32_t timeMs) { sleep.Call(timeMs); }

}  // namespace kiv::test
