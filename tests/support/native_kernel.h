// Semaphores and named pipes for native builds, where the platform seam does not bind them. Every
// call succeeds unless a test makes it fail, and tests can read its arguments.
#ifndef KIV_TESTS_NATIVE_KERNEL_H
#define KIV_TESTS_NATIVE_KERNEL_H

#include <cstdint>

namespace kiv::test {

struct NativeKernel {
  uint32_t semaphoresLeft = UINT32_MAX;  // semaphores that can still be made
  int32_t openSemaphores = 0;            // semaphores made and not closed
  const void* path = nullptr;            // path of the last named pipe
  const void* accessList = nullptr;      // access list of the last named pipe
};
extern NativeKernel nativeKernel;

}  // namespace kiv::test

#endif
