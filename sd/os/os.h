// The platform seam: everything that the library asks of the operating system.
//
// Each header beside this one is a group of primitives. A primitive makes exactly one platform
// call and returns its value, or {ok, error} where the call can fail; it reads the platform's
// error straight after the call, before anything else runs. It knows no status and no context
// record, checks no argument, and allocates nothing through the library. What decides, checks
// and reports lies above the seam and is written once for all platforms.
//
// A platform is a folder (w32, lnx) that the build chooses: its sources define the primitives,
// and its inline/ folder holds those that hot paths use, so that they cost no call of their own.
// To port the library, make another folder and fill it until tests/frame/seam_test.cpp passes.
#ifndef KIV_OS_OS_H
#define KIV_OS_OS_H

#include <cstdint>

namespace kiv::os {

// The outcome of a call that yields nothing else. `error` is 0 when `ok`, else the platform's
// error number: GetLastError on Windows, errno elsewhere and after a call of the C runtime.
struct Result {
  bool ok;
  uint32_t error;
};

// The outcome of a call that yields a value; `value` means something only when `ok`.
template <typename T>
struct ValueResult {
  bool ok;
  uint32_t error;
  T value;
};

// The platform's last error as it stands on this thread, whoever set it.
uint32_t LastError();

}  // namespace kiv::os

#endif
