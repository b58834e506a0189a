#include "os/links.h"

#include <sys/utsname.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>

#include "os/lnx/posix.h"

namespace kiv::os {

// Every version has links.
const uint32_t kFirstVersionWithLinks = 0;

uint32_t MajorVersion() {
  utsname system;
  if (uname(&system) == -1) return 0;
  return static_cast<uint32_t>(std::strtoul(system.release, nullptr, 10));
}

Result MakeLink(const char* newLink, const char* existing) {
  if (newLink == nullptr || existing == nullptr) return {false, EFAULT};
  return FromErrno(link(existing, newLink));
}

}  // namespace kiv::os
