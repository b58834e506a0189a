// Selects the thread that an operation acts on.
#ifndef KIV_SDTHRW32_THREAD_HANDLE_H
#define KIV_SDTHRW32_THREAD_HANDLE_H

#include "kivsdu/api.h"
#include "os/thread.h"

namespace kiv {

// A null pointer means the calling thread.
inline void* HandleOf(const KivHandle* thread) {
  return thread != nullptr ? *thread : os::CurrentThreadHandle();
}

}  // namespace kiv

#endif
