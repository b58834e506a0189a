// Kernel objects that threads wait for. The caller owns each handle and closes it once with
// CloseObject.
#ifndef KIV_OS_KERNEL_OBJECTS_H
#define KIV_OS_KERNEL_OBJECTS_H

#include "os/os.h"

namespace kiv::os {

// Results of a wait, with the values that callers see in records. Any other value is a failure.
constexpr uint32_t kWaitSignalled = 0;
constexpr uint32_t kWaitAbandoned = 128;
constexpr uint32_t kWaitTimedOut = 258;

constexpr uint32_t kWaitForEver = 0xFFFFFFFF;

// OS error if a semaphore's count would exceed its maximum.
extern const uint32_t kErrorTooManyPosts;

struct Wait {
  uint32_t result;
  uint32_t error;  // 0 if signalled, else the last error after the call; meaningful on failure
};

Wait WaitOne(void* object, uint32_t timeoutMs);
Result CloseObject(void* object);

// A null name makes an unnamed object. Making an object whose name already exists opens that
// object. The Open functions ask for full access and return a handle that child processes inherit.
ValueResult<void*> MakeSemaphore(const char* name, int32_t initialCount, int32_t maximumCount);
ValueResult<void*> OpenNamedSemaphore(const char* name);
// `previousCount` may be null.
Result GiveSemaphore(void* semaphore, int32_t releaseCount, int32_t* previousCount);

ValueResult<void*> MakeMutex(const char* name);  // not held
ValueResult<void*> OpenNamedMutex(const char* name);
Result GiveMutex(void* mutex);

// An automatic event lets one waiter through and resets itself. A manual event, made unsignalled,
// lets all waiters through until UnsignalEvent.
ValueResult<void*> MakeAutoEvent(bool signalled);
ValueResult<void*> MakeManualEvent();
Result SignalEvent(void* event);
Result UnsignalEvent(void* event);

}  // namespace kiv::os

#endif
