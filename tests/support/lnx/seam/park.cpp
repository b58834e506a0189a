#include "os/park.h"

#include "support/lnx/seam_import.h"

namespace kiv::test {

using os::Result;
using os::ValueResult;

constexpr uint32_t kForEver = 0xFFFFFFFF;
constexpr int32_t kLargestCount = 0x7FFFFFFF;

KIV_SEAM_PRIMITIVE(MakeParkMutex, "_ZN3kiv2os13MakeParkMutexEv")
KIV_SEAM_PRIMITIVE(MakeParkSemaphore, "_ZN3kiv2os17MakeParkSemaphoreEv")
KIV_SEAM_PRIMITIVE(MakeParkEvent, "_ZN3kiv2os13MakeParkEventEv")
KIV_SEAM_PRIMITIVE(CloseParkMutex, "_ZN3kiv2os14CloseParkMutexEPv")
KIV_SEAM_PRIMITIVE(CloseParkSemaphore, "_ZN3kiv2os18CloseParkSemaphoreEPv")
KIV_SEAM_PRIMITIVE(CloseParkEvent, "_ZN3kiv2os14CloseParkEventEPv")
KIV_SEAM_PRIMITIVE(TakeParkMutex, "_ZN3kiv2os13TakeParkMutexEPv")
KIV_SEAM_PRIMITIVE(ReleaseParkMutex, "_ZN3kiv2os16ReleaseParkMutexEPv")
KIV_SEAM_PRIMITIVE(ReleaseAndPark, "_ZN3kiv2os14ReleaseAndParkEPvS1_")
KIV_SEAM_PRIMITIVE(SignalAndTake, "_ZN3kiv2os13SignalAndTakeEPvS1_")
KIV_SEAM_PRIMITIVE(Unpark, "_ZN3kiv2os6UnparkEPv")

namespace {

// A WAIT_ result.
uint32_t ToWait(const Result& result) {
  StoreError(result);
  return result.ok ? 0 : kForEver;
}

Result FromWait(uint32_t waited) {
  if (waited == 0) return {true, 0};
  return {false, waited == kForEver ? SeamLastError() : waited};
}

void* CreateMutexA(void*, int32_t, const char*) { return ToValue(RealMakeParkMutex()); }
void* CreateSemaphoreA(void*, int32_t, int32_t, const char*) {
  return ToValue(RealMakeParkSemaphore());
}
void* CreateEventA(void*, int32_t, int32_t, const char*) { return ToValue(RealMakeParkEvent()); }

int32_t CloseMutex(void* mutex) { return ToBool(RealCloseParkMutex(mutex)); }
int32_t CloseSemaphore(void* semaphore) { return ToBool(RealCloseParkSemaphore(semaphore)); }
int32_t CloseEvent(void* event) { return ToBool(RealCloseParkEvent(event)); }

uint32_t WaitForSingleObject(void* mutex, uint32_t) { return ToWait(RealTakeParkMutex(mutex)); }
int32_t ReleaseMutex(void* mutex) { return ToBool(RealReleaseParkMutex(mutex)); }

uint32_t ReleaseAndWait(void* mutex, void* semaphore, uint32_t, int32_t) {
  return ToWait(RealReleaseAndPark(mutex, semaphore));
}
uint32_t SignalAndWait(void* event, void* mutex, uint32_t, int32_t) {
  return ToWait(RealSignalAndTake(event, mutex));
}

int32_t ReleaseSemaphore(void* semaphore, int32_t, int32_t*) {
  return ToBool(RealUnpark(semaphore));
}

SeamImport<decltype(CreateMutexA)> createMutex("CreateMutexA", CreateMutexA);
SeamImport<decltype(CreateSemaphoreA)> createSemaphore("CreateSemaphoreA", CreateSemaphoreA);
SeamImport<decltype(CreateEventA)> createEvent("CreateEventA", CreateEventA);
SeamImport<decltype(CloseMutex)> closeMutex("CloseHandle", CloseMutex);
SeamImport<decltype(CloseSemaphore)> closeSemaphore("CloseHandle", CloseSemaphore);
SeamImport<decltype(CloseEvent)> closeEvent("CloseHandle", CloseEvent);
SeamImport<decltype(WaitForSingleObject)> waitForSingleObject("WaitForSingleObject",
                                                              WaitForSingleObject);
SeamImport<decltype(ReleaseMutex)> releaseMutex("ReleaseMutex", ReleaseMutex);
SeamImport<decltype(ReleaseAndWait)> releaseAndWait("SignalObjectAndWait", ReleaseAndWait);
SeamImport<decltype(SignalAndWait)> signalAndWait("SignalObjectAndWait", SignalAndWait);
SeamImport<decltype(ReleaseSemaphore)> releaseSemaphore("ReleaseSemaphore", ReleaseSemaphore);

}  // namespace

ValueResult<void*> WrapMakeParkMutex() {
  return FromPointer(createMutex.Call(nullptr, 0, nullptr));
}
ValueResult<void*> WrapMakeParkSemaphore() {
  return FromPointer(createSemaphore.Call(nullptr, 0, kLargestCount, nullptr));
}
ValueResult<void*> WrapMakeParkEvent() {
  return FromPointer(createEvent.Call(nullptr, 0, 0, nullptr));
}

Result WrapCloseParkMutex(void* mutex) { return FromBool(closeMutex.Call(mutex)); }
Result WrapCloseParkSemaphore(void* semaphore) { return FromBool(closeSemaphore.Call(semaphore)); }
Result WrapCloseParkEvent(void* event) { return FromBool(closeEvent.Call(event)); }

Result WrapTakeParkMutex(void* mutex) {
  return FromWait(waitForSingleObject.Call(mutex, kForEver));
}
Result WrapReleaseParkMutex(void* mutex) { return FromBool(releaseMutex.Call(mutex)); }

// A failure leaves the mutex released, as the primitive promises.
Result WrapReleaseAndPark(void* mutex, void* semaphore) {
  const Result waited = FromWait(releaseAndWait.Call(mutex, semaphore, kForEver, 0));
  if (!waited.ok) RealReleaseParkMutex(mutex);
  return waited;
}
Result WrapSignalAndTake(void* event, void* mutex) {
  return FromWait(signalAndWait.Call(event, mutex, kForEver, 0));
}
Result WrapUnpark(void* semaphore) {
  return FromBool(releaseSemaphore.Call(semaphore, 1, nullptr));
}

}  // namespace kiv::test
