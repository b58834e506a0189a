// The extension and the parent of a path, found in its text alone.
#include <cstring>

#include "kivsdu/path.h"
#include "lease_guard.h"
#include "os/path.h"

using namespace kiv;

namespace {

// NOLINTNEXTLINE(misc-redundant-expression): the two are different on Windows
bool IsSeparator(char letter) { return letter == os::kPathSeparator || letter == '/'; }

// `text` may overlap `out`.
char* Put(char* out, const char* text, size_t length) {
  std::memmove(out, text, length);
  out[length] = '\0';
  return out;
}

}  // namespace

// Compatibility: the last dot counts even if it is in a folder's name. Hosts pass names that have
// an extension.
char* KivSdFileGetExtension(const char* path, uint8_t includeDot, char* out) {
  RunLeaseGuard();
  const char* dot = path != nullptr ? std::strrchr(path, '.') : nullptr;
  if (dot == nullptr) return Put(out, "", 0);
  const char* extension = includeDot != 0 ? dot : dot + 1;
  return Put(out, extension, std::strlen(extension));
}

char* KivSdFileGetParentPath(const char* path, char* out) {
  RunLeaseGuard();
  size_t length = path != nullptr ? std::strlen(path) : 0;
  while (length > 0 && !IsSeparator(path[length - 1])) --length;
  const char here[] = {'.', os::kPathSeparator};
  return length > 0 ? Put(out, path, length) : Put(out, here, sizeof here);
}
