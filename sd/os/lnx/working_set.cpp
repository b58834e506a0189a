// Linux has no working sets. The nearest are two limits of the process, and hosts set a working set
// for what these limits do: its minimum is the memory that the process may lock, its maximum the
// memory that the process should keep resident (which the kernel records but does not enforce).
#include "os/working_set.h"

#include <sys/resource.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>

#include "os/lnx/posix.h"
#include "os/lnx/process_handle.h"

namespace kiv::os {
namespace {

// A limit can be raised up to its hard limit. Beyond that the hard limit is raised too, which needs
// a privilege.
Result SetLimit(pid_t process, __rlimit_resource resource, rlim_t bytes) {
  rlimit limit = {};
  if (prlimit(process, resource, nullptr, &limit) != 0) return FromErrno(-1);
  limit.rlim_cur = bytes;
  limit.rlim_max = std::max(limit.rlim_max, bytes);
  return FromErrno(prlimit(process, resource, &limit, nullptr));
}

}  // namespace

const uint32_t kErrorNoSuchPrivilege = EPERM;
const uint32_t kErrorPrivilegeNotHeld = EPERM;

ValueResult<WorkingSet> ReadWorkingSet(void* process) {
  const pid_t id = IdentifierOf(process);
  if (id == kNoProcess) return {false, EBADF, {}};
  rlimit locked = {};
  rlimit resident = {};
  Result result = FromErrno(prlimit(id, RLIMIT_MEMLOCK, nullptr, &locked));
  if (result.ok) result = FromErrno(prlimit(id, RLIMIT_RSS, nullptr, &resident));
  return {result.ok, result.error, {locked.rlim_cur, resident.rlim_cur}};
}

Result WriteWorkingSet(void* process, const WorkingSet& limits) {
  const pid_t id = IdentifierOf(process);
  if (id == kNoProcess) return {false, EBADF};
  if (limits.minimumBytes > limits.maximumBytes) return {false, EINVAL};
  rlimit resident = {};
  if (prlimit(id, RLIMIT_RSS, nullptr, &resident) != 0) return FromErrno(-1);
  const Result set = SetLimit(id, RLIMIT_RSS, limits.maximumBytes);
  if (!set.ok) return set;
  const Result locked = SetLimit(id, RLIMIT_MEMLOCK, limits.minimumBytes);
  if (!locked.ok) static_cast<void>(prlimit(id, RLIMIT_RSS, &resident, nullptr));
  return locked;
}

}  // namespace kiv::os
