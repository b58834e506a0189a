// Delays around the calls with which the Linux binding parks threads, enters critical sections and
// yields; the linker redirects these calls to here. A thread that is delayed in turns must not wait
// in the kernel, because then no thread would run. It lets other threads run until it can continue
// without waiting.
#include <pthread.h>
#include <sched.h>
#include <semaphore.h>

#include "stress/delay.h"

using kiv::stress::DelayAround;
using kiv::stress::LetOthersOn;

extern "C" {

int __real_pthread_mutex_lock(pthread_mutex_t* mutex);
int __real_pthread_mutex_unlock(pthread_mutex_t* mutex);
int __real_sem_wait(sem_t* semaphore);
int __real_sem_post(sem_t* semaphore);
int __real_sched_yield();

int __wrap_pthread_mutex_lock(pthread_mutex_t* mutex) {
  const DelayAround delay;
  while (pthread_mutex_trylock(mutex) != 0) {
    if (!LetOthersOn()) return __real_pthread_mutex_lock(mutex);
  }
  return 0;
}

int __wrap_pthread_mutex_unlock(pthread_mutex_t* mutex) {
  const DelayAround delay;
  return __real_pthread_mutex_unlock(mutex);
}

int __wrap_sem_wait(sem_t* semaphore) {
  const DelayAround delay;
  while (sem_trywait(semaphore) != 0) {
    if (!LetOthersOn()) return __real_sem_wait(semaphore);
  }
  return 0;
}

int __wrap_sem_post(sem_t* semaphore) {
  const DelayAround delay;
  return __real_sem_post(semaphore);
}

int __wrap_sched_yield() { return LetOthersOn() ? 0 : __real_sched_yield(); }

}  // extern "C"
