#include "os/thread_slot.h"

#include <pthread.h>

#include "os/lnx/posix.h"

namespace kiv::os {

ValueResult<uint32_t> AllocateThreadSlot() {
  pthread_key_t key = 0;
  const Result result = FromCode(pthread_key_create(&key, nullptr));
  return {result.ok, result.error, key};
}

Result FreeThreadSlot(uint32_t slot) { return FromCode(pthread_key_delete(slot)); }

Result WriteThreadSlot(uint32_t slot, void* value) {
  return FromCode(pthread_setspecific(slot, value));
}

}  // namespace kiv::os
