// Operations of one thread on another: stop and resume, waiting for its end, priority, handle.
#ifndef KIV_OS_THREAD_CONTROL_H
#define KIV_OS_THREAD_CONTROL_H

#include "os/os.h"

namespace kiv::os {

// The highest priority on the scale of ReadThreadPriority and WriteThreadPriority.
constexpr int32_t kHighestThreadPriority = 2;

// A handle of the calling thread that other threads may use. Child processes do not inherit it.
ValueResult<void*> DuplicateCurrentThread();

// A thread stays stopped until it has been resumed as often as it was stopped.
Result StopThread(void* handle);
Result ResumeStoppedThread(void* handle);
[[noreturn]] void EndCurrentThread(uint32_t exitCode);

// A claim belongs to the thread that takes it until that thread ends; it is never given back.
enum class Claim {
  kTaken,           // by the first, or again by its holder
  kTakenFromEnded,  // the last holder has ended
  kFailed,
};

ValueResult<void*> MakeClaim();
Result CloseClaim(void* claim);  // that nobody has taken
Claim TakeClaim(void* claim);    // waits until the holder has ended; fails at once for null

ValueResult<int32_t> ReadThreadPriority(void* handle);
Result WriteThreadPriority(void* handle, int32_t priority);

}  // namespace kiv::os

#endif
