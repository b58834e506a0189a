// Slots that hold one pointer for every thread.
//
//   void* ReadThreadSlot(uint32_t slot)  this thread's value; null until the thread sets one
//
// Inline: per-thread state is read on hot paths.
#ifndef KIV_OS_THREAD_SLOT_H
#define KIV_OS_THREAD_SLOT_H

#include "inline/thread_slot.h"
#include "os/os.h"

namespace kiv::os {

// A slot whose value is null in every thread.
ValueResult<uint32_t> AllocateThreadSlot();
Result FreeThreadSlot(uint32_t slot);
Result WriteThreadSlot(uint32_t slot, void* value);

}  // namespace kiv::os

#endif
