// Changes to a directory, makes one, and recognises one by its attributes.
#include "kivsdu/file.h"
#include "kivsdu/filesearch.h"
#include "kivsdu/path.h"
#include "lease_guard.h"
#include "os/file_names.h"
#include "os/folders.h"
#include "report.h"

using namespace kiv;

uint32_t KivSdDirChange(KivSdContext* ctx, const char* path) {
  if (path == nullptr) return Report(ctx, KIV_ST_ARGUMENT);
  const os::Result changed = os::ChangeFolder(path);
  const bool missing = changed.error == os::kErrnoMissing;
  return ReportOutcome(ctx, changed, missing ? KIV_ST_DIR_MISSING : KIV_ST_DIR_CHANGE);
}

uint32_t KivSdDirCreate(KivSdContext* ctx, const char* path) {
  RunLeaseGuard();
  if (path == nullptr) return Report(ctx, KIV_ST_ARGUMENT);
  return ReportOutcome(ctx, os::MakeFolder(path), KIV_ST_DIR_CREATE);
}

// Compatibility: succeeds if a file has that name. Hosts then open something in the directory, and
// that call fails.
uint32_t KivSdDirCreateEx(KivSdContext* ctx, const char* path) {
  RunLeaseGuard();
  uint8_t exists = 0;
  const uint32_t status = KivSdFileAccess(ctx, path, os::kAccessExists, &exists);
  if (status == KIV_ST_OK && exists != 0) return status;
  return KivSdDirCreate(ctx, path);
}

uint32_t KivSdIsAttrDirectory(KivSdContext* ctx, uint8_t attributes, uint8_t* isDirectory) {
  RunLeaseGuard();
  if (isDirectory == nullptr) return Report(ctx, KIV_ST_ARGUMENT);
  *isDirectory = (attributes & KIV_ATTRIBUTE_DIRECTORY) != 0 ? 1 : 0;
  return Report(ctx, KIV_ST_OK);
}
