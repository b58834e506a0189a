// The file "holders" in the folder of names: which objects are held, and by which process the steps
// of making, opening and closing run. The caller holds the process's mutex of names.
#ifndef KIV_OS_LNX_HOLDERS_H
#define KIV_OS_LNX_HOLDERS_H

#include <sys/types.h>

#include "os/os.h"

namespace kiv::os {

// Opens the file if this process has not. `isNew` is set then: what the process holds must be held
// again. A forked child has its parent's descriptor and opens its own.
Result OpenHolders(int folder, bool* isNew);

// Excludes all other processes; waits for them.
Result BeginSteps();
void EndSteps();

Result HoldObject(ino_t object);
void DropObject(ino_t object);

// Whether another process holds it. True if that cannot be found out.
bool IsHeldByOthers(ino_t object);

}  // namespace kiv::os

#endif
