// What one thread does to another: stopping it, waiting until it has ended, its priority, its
// handle.
#ifndef KIV_OS_THREAD_CONTROL_H
#define KIV_OS_THREAD_CONTROL_H

#include "os/os.h"

namespace kiv::os {

// The scale's highest priority.
constexpr int32_t kHighestThreadPriority = 2;

// A handle of the calling thread for others; not inheritable.
ValueResult<void*> DuplicateCurrentThread();

Result StopThread(void* handle);  // until it is resumed as often
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
