// Opens and closes files.
#include "kivsdu/file.h"
#include "lease_guard.h"
#include "os/descriptors.h"
#include "report.h"
#include "require.h"

using namespace kiv;

namespace {

static_assert(KIV_FILE_NONE == os::kNoDescriptor);
static_assert(KIV_FILEO_EXCL == os::kOpenOnlyIfNew);

constexpr char kSource[] = "sd/sdfiow32";
constexpr uint32_t kLineOpen = 561;
constexpr uint32_t kLineOpen64 = 583;
constexpr uint32_t kLineShareOpen = 652;

// Asserts that the exclusive flag is not set: only the ...ExclusiveMode operations may set it.
void RequireNotExclusive(uint32_t openFlags, uint32_t line) {
  Require((openFlags & KIV_FILEO_EXCL) != KIV_FILEO_EXCL,
          "(iOFlag & KIV_FILEO_EXCL) != KIV_FILEO_EXCL", kSource, line);
}

uint32_t Open(KivSdContext* ctx, const char* path, uint32_t openFlags, uint32_t permissions,
              uint32_t* file) {
  const os::ValueResult<uint32_t> opened = os::OpenDescriptor(path, openFlags, permissions);
  *file = opened.value;
  return ReportOutcome(ctx, opened, KIV_ST_FILE_OPEN);
}

// In failover mode a node that takes over must be able to open files that the failed node may still
// hold.
uint32_t ShareFlags(uint32_t asked) {
  return KivSdIsFailoverMode() != 0 ? os::kShareEverything : asked;
}

uint32_t OpenShared(KivSdContext* ctx, const char* path, uint32_t openFlags, uint32_t shareFlags,
                    uint32_t permissions, uint32_t* file) {
  const os::ValueResult<os::SharedDescriptor> opened =
      os::OpenSharedDescriptor(path, openFlags, ShareFlags(shareFlags), permissions);
  *file = opened.value.file;
  return ReportOutcome(ctx, opened,
                       opened.value.heldByAnother ? KIV_ST_FILE_SHARING : KIV_ST_FILE_SHARE_OPEN);
}

}  // namespace

uint32_t KivSdFileCreate(KivSdContext* ctx, const char* path, uint32_t permissions,
                         uint32_t* file) {
  RunLeaseGuard();
  if (path == nullptr || file == nullptr) return Report(ctx, KIV_ST_ARGUMENT);
  const os::ValueResult<uint32_t> made = os::CreateDescriptor(path, permissions);
  *file = made.value;
  return ReportOutcome(ctx, made, KIV_ST_FILE_CREATE);
}

uint32_t KivSdFileOpen(KivSdContext* ctx, const char* path, uint32_t openFlags,
                       uint32_t permissions, uint32_t* file) {
  RunLeaseGuard();
  if (path == nullptr || file == nullptr) return Report(ctx, KIV_ST_ARGUMENT);
  RequireNotExclusive(openFlags, kLineOpen);
  return Open(ctx, path, openFlags, permissions, file);
}

// Compatibility: differs from KivSdFileOpen only in the assertion's line number. Hosts see by the
// number which of the two operations was called.
uint32_t KivSdFileOpen64(KivSdContext* ctx, const char* path, uint32_t openFlags,
                         uint32_t permissions, uint32_t* file) {
  RunLeaseGuard();
  if (path == nullptr || file == nullptr) return Report(ctx, KIV_ST_ARGUMENT);
  RequireNotExclusive(openFlags, kLineOpen64);
  return Open(ctx, path, openFlags, permissions, file);
}

uint32_t KivSdFileOpenExclusiveMode(KivSdContext* ctx, const char* path, uint32_t openFlags,
                                    uint32_t permissions, uint32_t* file) {
  RunLeaseGuard();
  if (path == nullptr || file == nullptr) return Report(ctx, KIV_ST_ARGUMENT);
  return Open(ctx, path, openFlags | KIV_FILEO_EXCL, permissions, file);
}

uint32_t KivSdFileSOpen(KivSdContext* ctx, const char* path, uint32_t openFlags,
                        uint32_t shareFlags, uint32_t permissions, uint32_t* file) {
  RunLeaseGuard();
  if (path == nullptr || file == nullptr) return Report(ctx, KIV_ST_ARGUMENT);
  RequireNotExclusive(openFlags, kLineShareOpen);
  return OpenShared(ctx, path, openFlags, shareFlags, permissions, file);
}

uint32_t KivSdFileSOpenExclusiveMode(KivSdContext* ctx, const char* path, uint32_t openFlags,
                                     uint32_t shareFlags, uint32_t permissions, uint32_t* file) {
  RunLeaseGuard();
  if (path == nullptr || file == nullptr) return Report(ctx, KIV_ST_ARGUMENT);
  return OpenShared(ctx, path, openFlags | KIV_FILEO_EXCL, shareFlags, permissions, file);
}

// Compatibility: does not run the lease guard. A node that has lost its lease must still be able to
// close its files.
uint32_t KivSdFileClose(KivSdContext* ctx, uint32_t file) {
  if (file == KIV_FILE_NONE) return Report(ctx, KIV_ST_FILE_CLOSE, os::kErrnoBadDescriptor);
  return ReportOutcome(ctx, os::CloseDescriptor(file), KIV_ST_FILE_CLOSE);
}
