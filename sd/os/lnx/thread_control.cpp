// Linux: a thread can stop only itself, and stays stopped. Priorities of single threads are not
// supported.
#include "os/thread_control.h"

#include <pthread.h>

#include <cerrno>
#include <new>

#include "os/lnx/posix.h"
#include "os/thread.h"

namespace kiv::os {
namespace {

constexpr uint32_t kSleepForEver = 0xFFFFFFFF;
constexpr Result kNotSupported = {false, ENOTSUP};

// Robust: the system frees the mutex when its holder ends, and says so to the next one.
int PrepareClaim(pthread_mutex_t* mutex) {
  pthread_mutexattr_t kind;
  pthread_mutexattr_init(&kind);
  pthread_mutexattr_settype(&kind, PTHREAD_MUTEX_RECURSIVE);
  pthread_mutexattr_setrobust(&kind, PTHREAD_MUTEX_ROBUST);
  const int error = pthread_mutex_init(mutex, &kind);
  pthread_mutexattr_destroy(&kind);
  return error;
}

}  // namespace

ValueResult<void*> DuplicateCurrentThread() { return {false, ENOTSUP, nullptr}; }

Result StopThread(void* handle) {
  if (handle != CurrentThreadHandle()) return kNotSupported;
  SleepMs(kSleepForEver);
  return {true, 0};
}

Result ResumeStoppedThread(void* /*handle*/) { return kNotSupported; }

void EndCurrentThread(uint32_t /*exitCode*/) { pthread_exit(nullptr); }

ValueResult<void*> MakeClaim() {
  auto* mutex = new (std::nothrow) pthread_mutex_t;
  if (mutex == nullptr) return {false, ENOMEM, nullptr};
  const Result result = FromCode(PrepareClaim(mutex));
  if (result.ok) return {true, 0, mutex};
  delete mutex;
  return {false, result.error, nullptr};
}

Result CloseClaim(void* claim) {
  auto* mutex = static_cast<pthread_mutex_t*>(claim);
  const Result result = FromCode(pthread_mutex_destroy(mutex));
  delete mutex;
  return result;
}

Claim TakeClaim(void* claim) {
  if (claim == nullptr) return Claim::kFailed;
  auto* mutex = static_cast<pthread_mutex_t*>(claim);
  const int error = pthread_mutex_lock(mutex);
  if (error != EOWNERDEAD) return error == 0 ? Claim::kTaken : Claim::kFailed;
  pthread_mutex_consistent(mutex);
  return Claim::kTakenFromEnded;
}

ValueResult<int32_t> ReadThreadPriority(void* /*handle*/) { return {false, ENOTSUP, 0}; }

Result WriteThreadPriority(void* /*handle*/, int32_t /*priority*/) { return kNotSupported; }

}  // namespace kiv::os
