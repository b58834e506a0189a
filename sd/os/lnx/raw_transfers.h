// Single transfers of descriptors, without the library's modes. Each is retried if a signal
// interrupts it, and returns the count, or -1 with errno.
//
// Plain transfers are inline, because after a call that entered the kernel each stack frame costs as
// much as a dozen other instructions.
#ifndef KIV_OS_LNX_RAW_TRANSFERS_H
#define KIV_OS_LNX_RAW_TRANSFERS_H

#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstddef>
#include <cstdint>

namespace kiv::os {

template <typename Call>
int64_t Retried(Call call) {
  int64_t count = -1;
  do {
    count = call();
  } while (count == -1 && errno == EINTR);
  return count;
}

inline int64_t ReadRaw(int descriptor, void* buffer, size_t length) {
  return Retried([&] { return read(descriptor, buffer, length); });
}

inline int64_t WriteRaw(int descriptor, const void* buffer, size_t length) {
  return Retried([&] { return write(descriptor, buffer, length); });
}

inline int64_t ReadRawAt(int descriptor, void* buffer, size_t length, int64_t offset) {
  return Retried([&] { return pread(descriptor, buffer, length, offset); });
}

inline int64_t WriteRawAt(int descriptor, const void* buffer, size_t length, int64_t offset) {
  return Retried([&] { return pwrite(descriptor, buffer, length, offset); });
}

// Writes at the end of the file, wherever others have moved it meanwhile, and moves the position
// behind the bytes.
int64_t AppendRaw(int descriptor, const void* buffer, size_t length);

// WriteRaw for a descriptor that may be a pipe or a socket. A write without a reader raises SIGPIPE,
// and signals belong to the host. New kernels write without the signal if asked; on older ones the
// thread blocks the signal meanwhile.
int64_t WriteRawWithoutSignal(int descriptor, const void* buffer, size_t length);

// Whether the kernel can write without raising SIGPIPE, as far as is known. Tests clear it.
extern std::atomic<bool> kernelHasNoSignal;

}  // namespace kiv::os

#endif
