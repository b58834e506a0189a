// Delays around the calls that the Linux binding of parking and of critical sections makes: the
// linker sends them here.
#include <pthread.h>
#include <semaphore.h>

#include "lock_stress/delay.h"

using kiv::stress::DelayAround;

extern "C" {

int __real_pthread_mutex_lock(pthread_mutex_t* mutex);
int __real_pthread_mutex_unlock(pthread_mutex_t* mutex);
int __real_sem_wait(sem_t* semaphore);
int __real_sem_post(sem_t* semaphore);

int __wrap_pthread_mutex_lock(pthread_mutex_t* mutex) {
  const DelayAround delay;
  return __real_pthread_mutex_lock(mutex);
}

int __wrap_pthread_mutex_unlock(pthread_mutex_t* mutex) {
  const DelayAround delay;
  return __real_pthread_mutex_unlock(mutex);
}

int __wrap_sem_wait(sem_t* semaphore) {
  const DelayAround delay;
  return __real_sem_wait(semaphore);
}

int __wrap_sem_post(sem_t* semaphore) {
  const DelayAround delay;
  return __real_sem_post(semaphore);
}

}  // extern "C"
