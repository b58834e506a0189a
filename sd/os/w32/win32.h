// The only file that includes <windows.h>, and the result conversions that the bindings share.
#ifndef KIV_OS_W32_WIN32_H
#define KIV_OS_W32_WIN32_H

#ifndef WIN32_LEAN_AND_MEAN
#define WIN32_LEAN_AND_MEAN
#endif
#ifndef NOMINMAX
#define NOMINMAX
#endif
#include <windows.h>

#include "os/os.h"

namespace kiv::os {

// The outcome of a call that returns FALSE on failure. Must follow the call directly, while the
// last error is still that call's.
inline Result FromBool(BOOL succeeded) {
  if (succeeded) return {true, 0};
  return {false, GetLastError()};
}

// The outcome of a call that returns a null handle or pointer on failure.
inline ValueResult<void*> FromPointer(void* made) {
  if (made != nullptr) return {true, 0, made};
  return {false, GetLastError(), nullptr};
}

// The outcome of a wait without a time limit: every result but "signalled" is a failure.
inline Result FromWait(DWORD waited) {
  if (waited == WAIT_OBJECT_0) return {true, 0};
  return {false, waited == WAIT_FAILED ? GetLastError() : waited};
}

}  // namespace kiv::os

#endif
