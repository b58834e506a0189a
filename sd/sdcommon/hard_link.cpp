// Hard links: further names for files.
#include "kivsdu/directio.h"
#include "kivsdu/path.h"
#include "lease_guard.h"
#include "os/links.h"
#include "report.h"

using namespace kiv;

// Compatibility: succeeds on systems without links and makes none. Hosts notice when they open the
// link.
uint32_t KivSdCreateLink(KivSdContext* ctx, const char* existing, const char* newLink,
                         uint32_t /*ignored*/) {
  RunLeaseGuard();
  if (os::MajorVersion() < os::kFirstVersionWithLinks) return Report(ctx, KIV_ST_OK);
  return ReportOutcome(ctx, os::MakeLink(newLink, existing), KIV_ST_FILE_CREATE);
}

uint32_t KivSdUnLink(KivSdContext* ctx, const char* path) {
  RunLeaseGuard();
  return KivSdDirectIOFileRemove(ctx, path);
}
