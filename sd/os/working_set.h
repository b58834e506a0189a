// Working sets of processes, in bytes.
#ifndef KIV_OS_WORKING_SET_H
#define KIV_OS_WORKING_SET_H

#include "os/os.h"

namespace kiv::os {

struct WorkingSet {
  uint64_t minimumBytes;
  uint64_t maximumBytes;
};

// OS errors if the caller lacks the privilege for the change.
extern const uint32_t kErrorNoSuchPrivilege;
extern const uint32_t kErrorPrivilegeNotHeld;

ValueResult<WorkingSet> ReadWorkingSet(void* process);
Result WriteWorkingSet(void* process, const WorkingSet& limits);

}  // namespace kiv::os

#endif
