// Sleeping in the kernel: a mutex orders the waker against the sleeper, and a semaphore carries the
// wake-up.
//
// The sleeper takes the mutex, checks once more that it must wait, and calls ReleaseAndPark, which
// releases the mutex and sleeps. The waker takes the mutex, grants the lock, calls Unpark if the
// sleeper is asleep, and releases the mutex. No wake-up is lost: an Unpark that comes before the
// sleep ends it at once.
#ifndef KIV_OS_PARK_H
#define KIV_OS_PARK_H

#include "os/os.h"

namespace kiv::os {

ValueResult<void*> MakeParkMutex();      // not held
ValueResult<void*> MakeParkSemaphore();  // count 0
Result CloseParkMutex(void* mutex);
Result CloseParkSemaphore(void* semaphore);

Result TakeParkMutex(void* mutex);  // waits for ever
Result ReleaseParkMutex(void* mutex);

// Releases the mutex and waits for the semaphore without a time limit: in one step if the platform
// has such a call (w32), else in two (lnx). The mutex is not held afterwards.
Result ReleaseAndPark(void* mutex, void* semaphore);

// An event that is made unsignalled and lets one waiter through. When several sleepers are woken at
// once, the last of them signals it to the waker.
ValueResult<void*> MakeParkEvent();
Result CloseParkEvent(void* event);

// Signals the event and takes the mutex, in one step if the platform has such a call.
Result SignalAndTake(void* event, void* mutex);

// Raises the semaphore by 1: one sleeper wakes, or the next ReleaseAndPark returns at once.
Result Unpark(void* semaphore);

}  // namespace kiv::os

#endif
