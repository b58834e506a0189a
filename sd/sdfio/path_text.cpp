// Parts of paths, as texts.
#include <cstring>

#include "kivsdu/path.h"
#include "lease_guard.h"
#include "os/path.h"

using namespace kiv;

namespace {

bool IsSeparator(char letter) { return letter == os::kPathSeparator || letter == '/'; }

// The text may lie in the place it goes to.
char* Put(char* out, const char* text, size_t length) {
  std::memmove(out, text, length);
  out[length] = '\0';
  return out;
}

}  // namespace

// Kept: the last dot counts wherever it is. Hosts give names of which they know that they have one.
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
