// Makes a directory and all missing directories above it.
#include <cstring>

#include "kivsdu/file.h"
#include "kivsdu/path.h"
#include "lease_guard.h"
#include "os/file_names.h"
#include "os/path.h"
#include "report.h"

using namespace kiv;

namespace {

uint32_t MakeLevel(KivSdContext* ctx, const char* path) {
  uint8_t exists = 0;
  const uint32_t status = KivSdFileAccess(ctx, path, os::kAccessExists, &exists);
  if (status == KIV_ST_OK && exists != 0) return status;
  return KivSdDirCreate(ctx, path);
}

}  // namespace

// Separators at the start, in rows and at the end stay in the path and do not make a level.
uint32_t KivSdCreatePath(KivSdContext* ctx, const char* path) {
  RunLeaseGuard();
  if (path == nullptr) return KIV_CREATE_PATH_REFUSED;
  const size_t length = std::strlen(path);
  if (length > KIV_CREATE_PATH_MAX) return KIV_CREATE_PATH_REFUSED;

  char level[KIV_CREATE_PATH_MAX + 1];
  uint32_t status = Report(ctx, KIV_ST_OK);
  for (size_t end = 0; end <= length; ++end) {
    const bool levelEnds = path[end] == os::kPathSeparator || path[end] == '\0';
    if (levelEnds && end > 0 && path[end - 1] != os::kPathSeparator) {
      level[end] = '\0';
      status = MakeLevel(ctx, level);
      if (status != KIV_ST_OK) return status;
    }
    level[end] = path[end];
  }
  return status;
}
