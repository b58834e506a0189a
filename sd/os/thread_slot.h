// Thread-local slots: each holds one pointer per thread.
//
//   void* ReadThreadSlot(uint32_t slot)  this thread's value; null until the thread writes one
//
// Inline: hot paths read per-thread state.
#ifndef KIV_OS_THREAD_SLOT_H
#define KIV_OS_THREAD_SLOT_H

#include "inline/thread_slot.h"
#include "os/os.h"

namespace kiv::os {

// Returns a slot whose value is null in every thread.
ValueResult<uint32_t> AllocateThreadSlot();
Result FreeThreadSlot(uint32_t slot);
Result WriteThreadSlot(uint32_t slot, void* value);

}  // namespace kiv::os

#endif
