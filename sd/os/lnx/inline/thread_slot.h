// Linux: slots are pthread keys.
#ifndef KIV_OS_LNX_INLINE_THREAD_SLOT_H
#define KIV_OS_LNX_INLINE_THREAD_SLOT_H

#include <pthread.h>

#include <cstdint>

namespace kiv::os {

inline void* ReadThreadSlot(uint32_t slot) { return pthread_getspecific(slot); }

}  // namespace kiv::os

#endif
