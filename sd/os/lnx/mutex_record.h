// Mutexes in slots of the handle table.
#ifndef KIV_OS_LNX_MUTEX_RECORD_H
#define KIV_OS_LNX_MUTEX_RECORD_H

#include "os/kernel_objects.h"
#include "os/lnx/names.h"
#include "os/lnx/object_word.h"

namespace kiv::os {

ValueResult<void*> MakeUnnamedMutex();

// The handle owns a reference to the object. On failure the reference is given back.
ValueResult<void*> HandleOfMutex(const ValueResult<NamedObject*>& object);

Wait WaitForMutex(Slot* slot, const void* handle, uint32_t timeoutMs);
Result GiveMutexIn(Slot* slot, const void* handle);

// Ends what a closed slot without users holds. The caller frees the slot.
void EndMutexSlot(Slot* slot);

}  // namespace kiv::os

#endif
