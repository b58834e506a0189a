// Linux: a thread can stop only itself, and stays stopped. Priorities of single threads are not
// supported.
#include "os/thread_control.h"

#include <pthread.h>

#include <cerrno>

#include "os/thread.h"

namespace kiv::os {
namespace {

constexpr uint32_t kSleepForEver = 0xFFFFFFFF;
constexpr Result kNotSupported = {false, ENOTSUP};

}  // namespace

ValueResult<void*> DuplicateCurrentThread() { return {false, ENOTSUP, nullptr}; }

Result StopThread(void* handle) {
  if (handle != CurrentThreadHandle()) return kNotSupported;
  SleepMs(kSleepForEver);
  return {true, 0};
}

Result ResumeStoppedThread(void* /*handle*/) { return kNotSupported; }

void EndCurrentThread(uint32_t /*exitCode*/) { pthread_exit(nullptr); }

ValueResult<int32_t> ReadThreadPriority(void* /*handle*/) { return {false, ENOTSUP, 0}; }

Result WriteThreadPriority(void* /*handle*/, int32_t /*priority*/) { return kNotSupported; }

}  // namespace kiv::os
