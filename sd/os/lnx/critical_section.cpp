#include "os/critical_section.h"

#include <pthread.h>

#include "kivsdu/mutex.h"

static_assert(sizeof(KivSdCritSec) >= sizeof(pthread_mutex_t), "the caller's storage");

namespace kiv::os {
namespace {

pthread_mutex_t* MutexIn(void* storage) { return static_cast<pthread_mutex_t*>(storage); }

}  // namespace

void PrepareCriticalSection(void* storage) {
  pthread_mutexattr_t attributes;
  pthread_mutexattr_init(&attributes);
  pthread_mutexattr_settype(&attributes, PTHREAD_MUTEX_RECURSIVE);
  pthread_mutex_init(MutexIn(storage), &attributes);
  pthread_mutexattr_destroy(&attributes);
}

void EndCriticalSection(void* storage) { pthread_mutex_destroy(MutexIn(storage)); }

void EnterCriticalSection(void* storage) { pthread_mutex_lock(MutexIn(storage)); }

void LeaveCriticalSection(void* storage) { pthread_mutex_unlock(MutexIn(storage)); }

}  // namespace kiv::os
