// Several names of one file.
#ifndef KIV_OS_LINKS_H
#define KIV_OS_LINKS_H

#include "os/os.h"

namespace kiv::os {

// The first major version of the platform that has links.
extern const uint32_t kFirstVersionWithLinks;

// The major version as the platform tells it to this program; 0 when it does not.
uint32_t MajorVersion();

Result MakeLink(const char* newLink, const char* existing);

}  // namespace kiv::os

#endif
