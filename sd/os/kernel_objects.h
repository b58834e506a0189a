// Waiting objects of the kernel. A handle is the caller's and closed once.
#ifndef KIV_OS_KERNEL_OBJECTS_H
#define KIV_OS_KERNEL_OBJECTS_H

#include "os/os.h"

namespace kiv::os {

// Results of a wait, numbered as callers see them in records; anything else is a failure.
constexpr uint32_t kWaitSignalled = 0;
constexpr uint32_t kWaitAbandoned = 128;
constexpr uint32_t kWaitTimedOut = 258;

constexpr uint32_t kWaitForEver = 0xFFFFFFFF;

// OS error of a semaphore that would pass its maximum.
extern const uint32_t kErrorTooManyPosts;

struct Wait {
  uint32_t result;
  uint32_t error;  // the last error as it stood after the call; means something on a failure
};

Wait WaitOne(void* object, uint32_t timeoutMs);
Result CloseObject(void* object);

// A name may be null. Creating opens the object that has the name already; opening is for every
// access and gives a handle that child processes inherit.
ValueResult<void*> MakeSemaphore(const char* name, int32_t initialCount, int32_t maximumCount);
ValueResult<void*> OpenNamedSemaphore(const char* name);
// `previousCount` may be null.
Result GiveSemaphore(void* semaphore, int32_t releaseCount, int32_t* previousCount);

ValueResult<void*> MakeMutex(const char* name);  // not held
ValueResult<void*> OpenNamedMutex(const char* name);
Result GiveMutex(void* mutex);

// Automatic events let one waiter through and are then reset; a manual one, not signalled when it
// is made, lets everybody through until it is reset.
ValueResult<void*> MakeAutoEvent(bool signalled);
ValueResult<void*> MakeManualEvent();
Result SignalEvent(void* event);
Result UnsignalEvent(void* event);

}  // namespace kiv::os

#endif
