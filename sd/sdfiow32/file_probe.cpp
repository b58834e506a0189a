// What is known of a file by its name, and removing it.
#include "kivsdu/file.h"
#include "lease_guard.h"
#include "os/descriptors.h"
#include "os/file_names.h"
#include "report.h"

using namespace kiv;

namespace {

// Whether the file can be had for reading and writing alone; in failover mode another node may
// still hold it, and all sharing is offered.
bool CanBeOpened(const char* path) {
  const uint32_t shareFlags = KivSdIsFailoverMode() != 0 ? os::kShareEverything : os::kShareNothing;
  const os::ValueResult<os::SharedDescriptor> opened =
      os::OpenSharedDescriptor(path, os::kOpenBinary | os::kOpenReadWrite, shareFlags, 0);
  if (opened.ok) static_cast<void>(os::CloseDescriptor(opened.value.file));
  return opened.ok;
}

// Sets one of the bits that a trial decides between, and clears the others.
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

// Kept: bits of an earlier probe stay unless this one decides about them. Hosts gather the states
// that a file went through in one word.
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
