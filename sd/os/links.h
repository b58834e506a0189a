// Hard links: several names of one file.
#ifndef KIV_OS_LINKS_H
#define KIV_OS_LINKS_H

#include "os/os.h"

namespace kiv::os {

// The platform's first major version with hard links.
extern const uint32_t kFirstVersionWithLinks;

// The major version that the platform reports to this program; 0 if it reports none.
uint32_t MajorVersion();

Result MakeLink(const char* newLink, const char* existing);

}  // namespace kiv::os

#endif
