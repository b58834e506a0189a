// Semaphores and named pipes for native builds, where the seam has no binding for them: every call
// succeeds unless a test says otherwise, and what it was given can be looked at.
#ifndef KIV_TESTS_NATIVE_KERNEL_H
#define KIV_TESTS_NATIVE_KERNEL_H

#include <cstdint>

namespace kiv::test {

struct NativeKernel {
  uint32_t semaphoresLeft = UINT32_MAX;  // that can be made
  int32_t openSemaphores = 0;            // made and not closed
  const void* path = nullptr;            // of the last named pipe
  const void* accessList = nullptr;
};
extern NativeKernel nativeKernel;

}  // namespace kiv::test

#endif
