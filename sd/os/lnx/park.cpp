#include "os/park.h"

#include <pthread.h>
#include <semaphore.h>

#include <cerrno>
#include <new>

#include "os/lnx/posix.h"

namespace kiv::os {

ValueResult<void*> MakeParkMutex() {
  auto* mutex = new (std::nothrow) pthread_mutex_t;
  if (mutex == nullptr) return {false, ENOMEM, nullptr};
  const Result result = FromCode(pthread_mutex_init(mutex, nullptr));
  return {result.ok, result.error, mutex};
}

ValueResult<void*> MakeParkSemaphore() {
  auto* semaphore = new (std::nothrow) sem_t;
  if (semaphore == nullptr) return {false, ENOMEM, nullptr};
  const Result result = FromErrno(sem_init(semaphore, 0, 0));
  return {result.ok, result.error, semaphore};
}

Result CloseParkMutex(void* mutex) {
  auto* made = static_cast<pthread_mutex_t*>(mutex);
  const Result result = FromCode(pthread_mutex_destroy(made));
  delete made;
  return result;
}

Result CloseParkSemaphore(void* semaphore) {
  auto* made = static_cast<sem_t*>(semaphore);
  const Result result = FromErrno(sem_destroy(made));
  delete made;
  return result;
}

Result TakeParkMutex(void* mutex) {
  return FromCode(pthread_mutex_lock(static_cast<pthread_mutex_t*>(mutex)));
}

Result ReleaseParkMutex(void* mutex) {
  return FromCode(pthread_mutex_unlock(static_cast<pthread_mutex_t*>(mutex)));
}

Result ReleaseAndPark(void* mutex, void* semaphore) {
  const Result released = ReleaseParkMutex(mutex);
  if (!released.ok) return released;
  int waited;
  do {
    waited = sem_wait(static_cast<sem_t*>(semaphore));
  } while (waited == -1 && errno == EINTR);
  return FromErrno(waited);
}

// An event is a semaphore that is raised once and waited for once.
ValueResult<void*> MakeParkEvent() { return MakeParkSemaphore(); }

Result CloseParkEvent(void* event) { return CloseParkSemaphore(event); }

Result SignalAndTake(void* event, void* mutex) {
  const Result signalled = Unpark(event);
  return signalled.ok ? TakeParkMutex(mutex) : signalled;
}

Result Unpark(void* semaphore) { return FromErrno(sem_post(static_cast<sem_t*>(semaphore))); }

}  // namespace kiv::os
