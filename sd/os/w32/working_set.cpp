#include "os/working_set.h"

#include "os/w32/win32.h"

namespace kiv::os {

const uint32_t kErrorNoSuchPrivilege = ERROR_NO_SUCH_PRIVILEGE;
const uint32_t kErrorPrivilegeNotHeld = ERROR_PRIVILEGE_NOT_HELD;

ValueResult<WorkingSet> ReadWorkingSet(void* process) {
  SIZE_T minimum = 0;
  SIZE_T maximum = 0;
  const Result result = FromBool(GetProcessWorkingSetSize(process, &minimum, &maximum));
  return {result.ok, result.error, {minimum, maximum}};
}

Result WriteWorkingSet(void* process, const WorkingSet& limits) {
  return FromBool(SetProcessWorkingSetSize(process, limits.minimumBytes, limits.maximumBytes));
}

}  // namespace kiv::os
