// Semaphores in slots of the handle table: unnamed ones, and references to named ones.
#ifndef KIV_OS_LNX_SEMAPHORE_RECORD_H
#define KIV_OS_LNX_SEMAPHORE_RECORD_H

#include "os/kernel_objects.h"
#include "os/lnx/counting_semaphore.h"
#include "os/lnx/names.h"

namespace kiv::os {

// Kind::kSemaphore.
ValueResult<void*> MakeUnnamedSemaphore(int32_t initialCount, int32_t maximumCount);
Wait WaitForSemaphore(Slot* slot, const void* handle, uint32_t timeoutMs);
Result GiveSemaphoreIn(Slot* slot, const void* handle, int32_t count, int32_t* previousCount);

// Kind::kSharedSemaphore. The handle owns the reference to the object. On failure the reference is
// given back.
ValueResult<void*> HandleOfSemaphore(const ValueResult<NamedObject*>& object);
Wait WaitForSharedSemaphore(Slot* slot, const void* handle, uint32_t timeoutMs);
Result GiveSharedSemaphoreIn(Slot* slot, const void* handle, int32_t count, int32_t* previousCount);

// Ends what a closed slot without users holds. The caller frees the slot.
void EndSharedSemaphoreSlot(Slot* slot);

}  // namespace kiv::os

#endif
