// Names of the library's statuses; see status_text.cpp.
#ifndef CELLHOST_HOST_STATUS_TEXT_H
#define CELLHOST_HOST_STATUS_TEXT_H

#include <stdint.h>

namespace cellhost {

// "KIV_ST_..." of a status, or "unknown status". Any thread.
const char* StatusName(uint32_t status);

}  // namespace cellhost

#endif
