// Mutexes of the C library: robust, and with priority inheritance, because then the kernel hands a
// released mutex to the thread that waits longest. The C library's mutex is kept plain. Who owns it,
// and how often, is noted in the process's own memory.
//
// tests/model/mutex.pml describes these mutexes for a model checker; change both together.
#ifndef KIV_OS_LNX_MUTEX_H
#define KIV_OS_LNX_MUTEX_H

#include <pthread.h>

#include <atomic>
#include <cstdint>

#include "os/kernel_objects.h"
#include "os/lnx/futex.h"

namespace kiv::os {

// One mutex as a process sees it. Several handles may refer to it.
struct OwnedMutex {
  pthread_mutex_t* mutex;
  std::atomic<uint64_t> owner;  // number of the owning thread; 0 or an ended thread's if not ours
  uint32_t depth;               // of the owner's requests
};

Result PrepareMutex(pthread_mutex_t* mutex, Scope scope);

Wait TakeMutex(OwnedMutex* mutex, uint32_t timeoutMs);

// EPERM if the calling thread does not own the mutex.
Result ReleaseMutex(OwnedMutex* mutex);

// Whether a living thread of this process owns it. The memory of such a mutex must stay: the C
// library links owned mutexes in a list, and the kernel walks that list when the thread ends.
bool IsOwnedHere(const OwnedMutex* mutex);

// Releases it as often as the calling thread has taken it.
void ReleaseMutexWholly(OwnedMutex* mutex);

// Ends a mutex that no thread owns, also an abandoned one.
void EndMutex(OwnedMutex* mutex);

}  // namespace kiv::os

#endif
