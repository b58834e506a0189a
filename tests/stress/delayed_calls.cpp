// Delays around the primitives with which the locks park threads and yield; the linker redirects
// these calls to here. A thread that is delayed in turns must not wait in the kernel, because then no
// thread would run. It lets other threads run until it can continue without waiting.
#include <sched.h>

#include "os/kernel_objects.h"
#include "os/park.h"
#include "stress/delay.h"

using kiv::stress::DelayAround;
using kiv::stress::LetOthersOn;

namespace kiv::os {

// Real<primitive> is the library's, Wrap<primitive> takes its calls.
#define KIV_DELAYED(primitive, symbol)                       \
  decltype(primitive) Real##primitive asm("__real_" symbol); \
  decltype(primitive) Wrap##primitive asm("__wrap_" symbol);

KIV_DELAYED(TakeParkMutex, "_ZN3kiv2os13TakeParkMutexEPv")
KIV_DELAYED(ReleaseParkMutex, "_ZN3kiv2os16ReleaseParkMutexEPv")
KIV_DELAYED(ReleaseAndPark, "_ZN3kiv2os14ReleaseAndParkEPvS1_")
KIV_DELAYED(SignalAndTake, "_ZN3kiv2os13SignalAndTakeEPvS1_")
KIV_DELAYED(Unpark, "_ZN3kiv2os6UnparkEPv")

namespace {

// Takes a unit of the semaphore, on which a park mutex and a park semaphore are built.
Result TakeInTurns(void* semaphore) {
  for (;;) {
    const Wait waited = WaitOne(semaphore, 0);
    if (waited.result == kWaitSignalled) return {true, 0};
    if (waited.result != kWaitTimedOut) return {false, waited.error};
    if (LetOthersOn()) continue;
    const Wait slept = WaitOne(semaphore, kWaitForEver);
    return {slept.result == kWaitSignalled, slept.error};
  }
}

}  // namespace

Result WrapTakeParkMutex(void* mutex) {
  const DelayAround delay;
  return TakeInTurns(mutex);
}

Result WrapReleaseParkMutex(void* mutex) {
  const DelayAround delay;
  return RealReleaseParkMutex(mutex);
}

Result WrapReleaseAndPark(void* mutex, void* semaphore) {
  const Result released = WrapReleaseParkMutex(mutex);
  if (!released.ok) return released;
  const DelayAround delay;
  return TakeInTurns(semaphore);
}

Result WrapSignalAndTake(void* event, void* mutex) {
  const DelayAround delay;
  const Result signalled = SignalEvent(event);
  return signalled.ok ? TakeInTurns(mutex) : signalled;
}

Result WrapUnpark(void* semaphore) {
  const DelayAround delay;
  return RealUnpark(semaphore);
}

}  // namespace kiv::os

extern "C" {

int __real_sched_yield();

int __wrap_sched_yield() { return LetOthersOn() ? 0 : __real_sched_yield(); }

}  // extern "C"
