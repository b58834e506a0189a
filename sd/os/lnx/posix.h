// Result conversions that the Linux bindings share.
#ifndef KIV_OS_LNX_POSIX_H
#define KIV_OS_LNX_POSIX_H

#include <cerrno>

#include "os/os.h"

namespace kiv::os {

// The outcome of a call that returns -1 on failure and sets errno.
inline Result FromErrno(int returned) {
  if (returned != -1) return {true, 0};
  return {false, static_cast<uint32_t>(errno)};
}

// The outcome of a call that returns its error number.
inline Result FromCode(int error) { return {error == 0, static_cast<uint32_t>(error)}; }

}  // namespace kiv::os

#endif
