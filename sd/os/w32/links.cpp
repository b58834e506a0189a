#include "os/links.h"

#include "os/w32/win32.h"

namespace kiv::os {

const uint32_t kFirstVersionWithLinks = 5;

uint32_t MajorVersion() {
  OSVERSIONINFOA version = {};
  version.dwOSVersionInfoSize = sizeof version;
  return GetVersionExA(&version) ? version.dwMajorVersion : 0;
}

Result MakeLink(const char* newLink, const char* existing) {
  return FromBool(CreateHardLinkA(newLink, existing, nullptr));
}

}  // namespace kiv::os
