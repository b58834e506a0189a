// Probes and removes files by name.
#include "kivsdu/file.h"
#include "lease_guard.h"
#include "os/descriptors.h"
#include "os/file_names.h"
#include "report.h"

using namespace kiv;

namespace {

// Whether the file can be opened for reading and writing without sharing. In failover mode another
// node may still hold the file, so the trial allows all sharing.
bool CanBeOpened(const char* path) {
  const uint32_t shareFlags = KivSdIsFailoverMode() != 0 ? os::kShareEverything : os::kShareNothing;
  const os::ValueResult<os::SharedDescriptor> opened =
      os::OpenSharedDescriptor(path, os::kOpenBinary | os::kOpenReadWrite, shareFlags, 0);
  if (opened.ok) static_cast<void>(os::CloseDescriptor(opened.value.file));
  return opened.ok;
}

// Sets the bit that the trial decided for, and clears the other two.
void Settle(uint32_t* status, uint32_t bit) {
  *status &= ~(KIV_FSTAT_UNSETTLED | KIV_FSTAT_INUSE | KIV_FSTAT_FREE);
  *status |= bit;
}

}  // namespace

uint32_t KivSdFileAccess(KivSdContext* ctx, const char* path, uint32_t mode, uint8_t* granted) {
  RunLeaseGuard();
  if (granted == nullptr) return Report(ctx, KIV_ST_ARGUMENT);
  *granted = os::IsAccessible(path, mode) ? 1 : 0;
  return Report(ctx, KIV_ST_OK);
}

uint32_t KivSdFileRemove(KivSdContext* ctx, const char* path) {
  RunLeaseGuard();
  if (path == nullptr) return Report(ctx, KIV_ST_ARGUMENT);
  return ReportOutcome(ctx, os::RemoveFileByName(path), KIV_ST_FILE_REMOVE);
}

// Compatibility: bits of earlier probes stay unless this probe decides about them. Hosts collect in
// one word the states that a file went through.
uint32_t KivSdFileGetStatus(KivSdContext* ctx, const char* path, uint32_t* status) {
  RunLeaseGuard();
  if (path == nullptr || status == nullptr) return Report(ctx, KIV_ST_ARGUMENT);
  *status |= KIV_FSTAT_UNSETTLED;
  if (!os::IsAccessible(path, os::kAccessExists)) {
    *status |= KIV_FSTAT_NOTEXIST;
  } else if (!os::IsAccessible(path, os::kAccessRead)) {
    *status |= KIV_FSTAT_NOREAD;
  } else {
    Settle(status, CanBeOpened(path) ? KIV_FSTAT_FREE : KIV_FSTAT_INUSE);
  }
  return Report(ctx, KIV_ST_OK);
}
