// What a thread that waits in the kernel sleeps on: a mutex that orders the waker against the
// sleeper, and a semaphore that carries the wake-up.
//
// The sleeper takes the mutex, looks once more whether it must wait, and calls ReleaseAndPark,
// which gives the mutex up and sleeps. The waker takes the mutex, grants, calls Unpark if the
// sleeper sleeps, and releases the mutex. No wake-up is lost: a semaphore released before the
// sleep begins ends it at once.
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

// Releases the mutex and waits for the semaphore, for ever. The mutex is not held afterwards.
// In one step where the platform has such a call (w32), else in two (lnx).
Result ReleaseAndPark(void* mutex, void* semaphore);

// An event that is not signalled and lets one waiter through; the last of several sleepers that
// are woken at once tells the waker by it.
ValueResult<void*> MakeParkEvent();
Result CloseParkEvent(void* event);

// Signals the event and takes the mutex, in one step where the platform has such a call.
Result SignalAndTake(void* event, void* mutex);

// Raises the semaphore by 1: one sleeper wakes, or the next does not sleep.
Result Unpark(void* semaphore);

}  // namespace kiv::os

#endif
