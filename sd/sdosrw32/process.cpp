// The system directory, working sets, and the process's user.
#include <cstring>

#include "kivsdu/system.h"
#include "lease_guard.h"
#include "os/machine.h"
#include "os/working_set.h"
#include "report.h"

using namespace kiv;

namespace {

// Compatibility: sets of 2 GiB and more are cut to 2 GiB less 1 byte. Hosts rely on this limit.
constexpr uint64_t kWorkingSetUnitsCut = 0x40000;
constexpr uint64_t kWorkingSetBytesCut = 0x7FFFFFFF;

constexpr size_t kFailedNameBytes = 8;  // zeroed in the name buffer on failure

uint64_t WorkingSetBytes(uint64_t units) {
  return units >= kWorkingSetUnitsCut ? kWorkingSetBytesCut : units * KIV_PAGE_UNIT;
}

uint32_t WorkingSetFailure(uint32_t osError) {
  const bool privilege =
      osError == os::kErrorNoSuchPrivilege || osError == os::kErrorPrivilegeNotHeld;
  return privilege ? KIV_ST_WORKING_SET_PRIVILEGE : KIV_ST_WORKING_SET_SET;
}

}  // namespace

uint32_t KivSdHomePathGet(KivSdContext* ctx, uint32_t length, char* path) {
  RunLeaseGuard();
  if (path == nullptr) return Report(ctx, KIV_ST_ARGUMENT);
  if (length == 0) return Report(ctx, KIV_ST_OK);
  const os::ValueResult<uint32_t> directory = os::SystemDirectory(path, length);
  if (!directory.ok) return Report(ctx, KIV_ST_HOME_PATH, directory.error);
  if (directory.value < length) return Report(ctx, KIV_ST_OK);
  // If the buffer is too small, the system reports no error but stores no path: report a failure.
  path[0] = '\0';
  return Report(ctx, KIV_ST_HOME_PATH, os::kErrorBufferTooSmall);
}

uint32_t KivSdProcessWorkingSetSizeGet(KivSdContext* ctx, KivHandle process, uint64_t* minimum,
                                       uint64_t* maximum) {
  RunLeaseGuard();
  if (minimum == nullptr || maximum == nullptr) return Report(ctx, KIV_ST_ARGUMENT);
  const os::ValueResult<os::WorkingSet> limits = os::ReadWorkingSet(process);
  if (!limits.ok) return Report(ctx, KIV_ST_WORKING_SET_GET, limits.error);
  *minimum = limits.value.minimumBytes / KIV_PAGE_UNIT;
  *maximum = limits.value.maximumBytes / KIV_PAGE_UNIT;
  return Report(ctx, KIV_ST_OK);
}

uint32_t KivSdProcessWorkingSetSizeSet(KivSdContext* ctx, KivHandle process, uint64_t minimum,
                                       uint64_t maximum) {
  RunLeaseGuard();
  const os::WorkingSet limits = {WorkingSetBytes(minimum), WorkingSetBytes(maximum)};
  if (limits.minimumBytes == 0 || limits.maximumBytes == 0) return Report(ctx, KIV_ST_ARGUMENT);
  const os::Result set = os::WriteWorkingSet(process, limits);
  return ReportOutcome(ctx, set, WorkingSetFailure(set.error));
}

// No lease guard: a host asks for its user before it has any lease.
uint32_t KivSdGetSessionLoginUsername(KivSdContext* ctx, char* name, uint32_t* length) {
  if (name == nullptr || length == nullptr) return Report(ctx, KIV_ST_ARGUMENT);
  char login[KIV_LOGIN_NAME_MAX] = {};
  if (!os::LoginName(login, sizeof login).ok) {
    *length = 0;
    std::memset(name, 0, kFailedNameBytes);
    // Compatibility: the OS error is not recorded. Callers use a name of their own instead.
    return Report(ctx, KIV_ST_LOGIN_USER);
  }
  *length = static_cast<uint32_t>(std::strlen(login));
  std::memcpy(name, login, *length + 1);
  return Report(ctx, KIV_ST_OK);
}
