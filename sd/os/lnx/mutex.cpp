#include "os/lnx/mutex.h"

#include <linux/futex.h>
#include <sched.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <ctime>

#include "os/lnx/posix.h"
#include "os/lnx/waits.h"

#if defined(__SANITIZE_THREAD__)
#define KIV_THREAD_SANITIZER
#elif defined(__has_feature)
#if __has_feature(thread_sanitizer)
#define KIV_THREAD_SANITIZER
#endif
#endif

namespace kiv::os {
namespace {

constinit std::atomic<uint64_t> lastThreadNumber{0};
constinit thread_local uint64_t threadNumber = 0;

// Unlike the system's identifier of a thread, this number is not used again.
uint64_t OwnNumber() {
  if (threadNumber == 0) {
    threadNumber = 1 + lastThreadNumber.fetch_add(1, std::memory_order_relaxed);
  }
  return threadNumber;
}

// The thread that forks does not own in the child what it owns in the parent.
void ForgetNumber() { threadNumber = 0; }

__attribute__((constructor)) void WatchForks() { pthread_atfork(nullptr, nullptr, ForgetNumber); }

// relaxed: only the owner itself can find its own number here.
bool IsOwn(const OwnedMutex* mutex) {
  return mutex->owner.load(std::memory_order_relaxed) == OwnNumber();
}

#ifdef KIV_THREAD_SANITIZER
// The sanitizer does not know pthread_mutex_clocklock.
int LockUntil(pthread_mutex_t* mutex, const Deadline& deadline) {
  int error;
  while ((error = pthread_mutex_trylock(mutex)) == EBUSY && !IsPast(deadline)) sched_yield();
  return error;
}
#else
int LockUntil(pthread_mutex_t* mutex, const Deadline& deadline) {
  return pthread_mutex_clocklock(mutex, CLOCK_MONOTONIC, &deadline.time);
}
#endif

int Lock(pthread_mutex_t* mutex, uint32_t timeoutMs) {
  if (timeoutMs == 0) return pthread_mutex_trylock(mutex);
  if (timeoutMs == kWaitForEver) return pthread_mutex_lock(mutex);
  return LockUntil(mutex, DeadlineAfter(timeoutMs));
}

void Own(OwnedMutex* mutex) {
  mutex->owner.store(OwnNumber(), std::memory_order_relaxed);
  mutex->depth = 1;
}

Wait TakeAgain(OwnedMutex* mutex) {
  if (mutex->depth == UINT32_MAX) return FailedWait(EAGAIN);
  ++mutex->depth;
  return kSignalledWait;
}

}  // namespace

Result PrepareMutex(pthread_mutex_t* mutex, Scope scope) {
  pthread_mutexattr_t attributes;
  pthread_mutexattr_init(&attributes);
  pthread_mutexattr_setrobust(&attributes, PTHREAD_MUTEX_ROBUST);
  pthread_mutexattr_setprotocol(&attributes, PTHREAD_PRIO_INHERIT);
  if (scope == Scope::kShared) {
    pthread_mutexattr_setpshared(&attributes, PTHREAD_PROCESS_SHARED);
  }
  const int error = pthread_mutex_init(mutex, &attributes);
  pthread_mutexattr_destroy(&attributes);
  return FromCode(error);
}

Wait TakeMutex(OwnedMutex* mutex, uint32_t timeoutMs) {
  if (IsOwn(mutex)) return TakeAgain(mutex);
  const int error = Lock(mutex->mutex, timeoutMs);
  if (error == EBUSY || error == ETIMEDOUT) return kTimedOutWait;
  if (error != 0 && error != EOWNERDEAD) return FailedWait(error);
  Own(mutex);
  if (error == 0) return kSignalledWait;
  pthread_mutex_consistent(mutex->mutex);
  return {kWaitAbandoned, EOWNERDEAD};
}

Result ReleaseMutex(OwnedMutex* mutex) {
  if (!IsOwn(mutex)) return {false, EPERM};
  if (--mutex->depth != 0) return {true, 0};
  mutex->owner.store(0, std::memory_order_relaxed);
  return FromCode(pthread_mutex_unlock(mutex->mutex));
}

bool IsOwnedHere(const OwnedMutex* mutex) {
  const int word = __atomic_load_n(&mutex->mutex->__data.__lock, __ATOMIC_RELAXED);
  const auto state = static_cast<uint32_t>(word);
  const uint32_t owner = state & FUTEX_TID_MASK;
  if (owner == 0 || (state & FUTEX_OWNER_DIED) != 0) return false;
  return tgkill(getpid(), static_cast<pid_t>(owner), 0) == 0;
}

void ReleaseMutexWholly(OwnedMutex* mutex) {
  while (IsOwn(mutex)) ReleaseMutex(mutex);
}

void EndMutex(OwnedMutex* mutex) {
  if (TakeMutex(mutex, 0).result != kWaitTimedOut) ReleaseMutexWholly(mutex);
  pthread_mutex_destroy(mutex->mutex);
}

}  // namespace kiv::os
