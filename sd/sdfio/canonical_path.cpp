// Absolute paths.
#include "kivsdu/path.h"
#include "kivsdu/status.h"
#include "lease_guard.h"
#include "os/file_search.h"

using namespace kiv;

// Compatibility: the sizes are compared as signed numbers, and the call succeeds if the system
// cannot resolve the path. Hosts rely on both.
uint32_t KivSdFileGetCanonicalPath(const char* path, int32_t sizeBytes, char* out) {
  RunLeaseGuard();
  const uint32_t needed = os::AbsolutePath(path, static_cast<uint32_t>(sizeBytes), out);
  return static_cast<int32_t>(needed) > sizeBytes ? KIV_ST_FILE_LENGTH : KIV_ST_OK;
}
