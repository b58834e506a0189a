// The platform seam: every call that the library makes to the operating system.
//
// Each header beside this one declares a group of primitives. A primitive is one platform call, or
// the few that a platform needs for the same effect. It returns the call's value, or {ok, error} if
// the call can fail. It reads the platform's error straight after the call, before anything else
// runs. A primitive knows no status and no context record, checks no argument, and allocates
// nothing through the library. Decisions, checks and reports lie above the seam and are written
// once for all platforms.
//
// A platform is a folder (w32, lnx) that the build chooses. Its sources define the primitives. Its
// inline/ folder defines those that hot paths use, which cost no call of their own. To port the
// library, add a folder and fill it until tests/frame/seam_test.cpp passes.
#ifndef KIV_OS_OS_H
#define KIV_OS_OS_H

#include <cstdint>

namespace kiv::os {

// The outcome of a call without a value. `error` is 0 if `ok`, else the platform's error number:
// GetLastError on Windows, errno elsewhere and after a call of the C runtime.
struct Result {
  bool ok;
  uint32_t error;
};

// The outcome of a call with a value. `value` is meaningful only if `ok`, unless the primitive's
// comment says more.
template <typename T>
struct ValueResult {
  bool ok;
  uint32_t error;
  T value;
};

// The platform's last error on this thread, whichever call set it.
uint32_t LastError();

}  // namespace kiv::os

#endif
