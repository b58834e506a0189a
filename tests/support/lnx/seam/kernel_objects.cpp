#include "os/kernel_objects.h"

#include "support/lnx/seam_import.h"

namespace kiv::test {

using os::Result;
using os::ValueResult;
using os::Wait;

constexpr uint32_t kWaitFailed = 0xFFFFFFFF;
constexpr uint32_t kSemaphoreAllAccess = 0x1F0003;
constexpr uint32_t kMutexAllAccess = 0x1F0001;
constexpr int32_t kInherited = 1;

KIV_SEAM_PRIMITIVE(WaitOne, "_ZN3kiv2os7WaitOneEPvj")
KIV_SEAM_PRIMITIVE(CloseObject, "_ZN3kiv2os11CloseObjectEPv")
KIV_SEAM_PRIMITIVE(MakeSemaphore, "_ZN3kiv2os13MakeSemaphoreEPKcii")
KIV_SEAM_PRIMITIVE(OpenNamedSemaphore, "_ZN3kiv2os18OpenNamedSemaphoreEPKc")
KIV_SEAM_PRIMITIVE(GiveSemaphore, "_ZN3kiv2os13GiveSemaphoreEPviPi")
KIV_SEAM_PRIMITIVE(MakeMutex, "_ZN3kiv2os9MakeMutexEPKc")
KIV_SEAM_PRIMITIVE(OpenNamedMutex, "_ZN3kiv2os14OpenNamedMutexEPKc")
KIV_SEAM_PRIMITIVE(GiveMutex, "_ZN3kiv2os9GiveMutexEPv")
KIV_SEAM_PRIMITIVE(MakeAutoEvent, "_ZN3kiv2os13MakeAutoEventEb")
KIV_SEAM_PRIMITIVE(MakeManualEvent, "_ZN3kiv2os15MakeManualEventEv")
KIV_SEAM_PRIMITIVE(SignalEvent, "_ZN3kiv2os11SignalEventEPv")
KIV_SEAM_PRIMITIVE(UnsignalEvent, "_ZN3kiv2os13UnsignalEventEPv")

namespace {

uint32_t WaitForSingleObject(void* object, uint32_t timeoutMs) {
  const Wait waited = RealWaitOne(object, timeoutMs);
  if (waited.result == kWaitFailed) StoreError({false, waited.error});
  return waited.result;
}

int32_t CloseHandle(void* object) { return ToBool(RealCloseObject(object)); }

void* CreateSemaphoreA(void*, int32_t initial, int32_t maximum, const char* name) {
  return ToValue(RealMakeSemaphore(name, initial, maximum));
}

void* OpenSemaphoreA(uint32_t, int32_t, const char* name) {
  return ToValue(RealOpenNamedSemaphore(name));
}

int32_t ReleaseSemaphore(void* semaphore, int32_t count, int32_t* previous) {
  return ToBool(RealGiveSemaphore(semaphore, count, previous));
}

void* CreateMutexA(void*, int32_t, const char* name) { return ToValue(RealMakeMutex(name)); }

void* OpenMutexA(uint32_t, int32_t, const char* name) { return ToValue(RealOpenNamedMutex(name)); }

int32_t ReleaseMutex(void* mutex) { return ToBool(RealGiveMutex(mutex)); }

void* CreateEventA(void*, int32_t manual, int32_t signalled, const char*) {
  return ToValue(manual != 0 ? RealMakeManualEvent() : RealMakeAutoEvent(signalled != 0));
}

int32_t SetEvent(void* event) { return ToBool(RealSignalEvent(event)); }
int32_t ResetEvent(void* event) { return ToBool(RealUnsignalEvent(event)); }

SeamImport<decltype(WaitForSingleObject)> waitForSingleObject("WaitForSingleObject",
                                                              WaitForSingleObject);
SeamImport<decltype(CloseHandle)> closeHandle("CloseHandle", CloseHandle);
SeamImport<decltype(CreateSemaphoreA)> createSemaphore("CreateSemaphoreA", CreateSemaphoreA);
SeamImport<decltype(OpenSemaphoreA)> openSemaphore("OpenSemaphoreA", OpenSemaphoreA);
SeamImport<decltype(ReleaseSemaphore)> releaseSemaphore("ReleaseSemaphore", ReleaseSemaphore);
SeamImport<decltype(CreateMutexA)> createMutex("CreateMutexA", CreateMutexA);
SeamImport<decltype(OpenMutexA)> openMutex("OpenMutexA", OpenMutexA);
SeamImport<decltype(ReleaseMutex)> releaseMutex("ReleaseMutex", ReleaseMutex);
SeamImport<decltype(CreateEventA)> createEvent("CreateEventA", CreateEventA);
SeamImport<decltype(SetEvent)> setEvent("SetEvent", SetEvent);
SeamImport<decltype(ResetEvent)> resetEvent("ResetEvent", ResetEvent);

}  // namespace

Wait WrapWaitOne(void* object, uint32_t timeoutMs) {
  const uint32_t result = waitForSingleObject.Call(object, timeoutMs);
  return {result, result == os::kWaitSignalled ? 0 : SeamLastError()};
}

Result WrapCloseObject(void* object) { return FromBool(closeHandle.Call(object)); }

ValueResult<void*> WrapMakeSemaphore(const char* name, int32_t initial, int32_t maximum) {
  return FromPointer(createSemaphore.Call(nullptr, initial, maximum, name));
}

ValueResult<void*> WrapOpenNamedSemaphore(const char* name) {
  return FromPointer(openSemaphore.Call(kSemaphoreAllAccess, kInherited, name));
}

Result WrapGiveSemaphore(void* semaphore, int32_t count, int32_t* previousCount) {
  int32_t previous = 0;
  const Result result = FromBool(releaseSemaphore.Call(semaphore, count, &previous));
  if (result.ok && previousCount != nullptr) *previousCount = previous;
  return result;
}

ValueResult<void*> WrapMakeMutex(const char* name) {
  return FromPointer(createMutex.Call(nullptr, 0, name));
}

ValueResult<void*> WrapOpenNamedMutex(const char* name) {
  return FromPointer(openMutex.Call(kMutexAllAccess, kInherited, name));
}

Result WrapGiveMutex(void* mutex) { return FromBool(releaseMutex.Call(mutex)); }

ValueResult<void*> WrapMakeAutoEvent(bool signalled) {
  return FromPointer(createEvent.Call(nullptr, 0, signalled ? 1 : 0, nullptr));
}

ValueResult<void*> WrapMakeManualEvent() {
  return FromPointer(createEvent.Call(nullptr, 1, 0, nullptr));
}

Result WrapSignalEvent(void* event) { return FromBool(setEvent.Call(event)); }
Result WrapUnsignalEvent(void* event) { return FromBool(resetEvent.Call(event)); }

}  // namespace kiv::test
