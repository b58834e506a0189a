// Single transfers of descriptors, without the library's modes. Each is retried if a signal
// interrupts it, and returns the count, or -1 with errno.
#ifndef KIV_OS_LNX_RAW_TRANSFERS_H
#define KIV_OS_LNX_RAW_TRANSFERS_H

#include <atomic>
#include <cstddef>
#include <cstdint>

namespace kiv::os {

int64_t ReadRaw(int descriptor, void* buffer, size_t length);
int64_t WriteRaw(int descriptor, const void* buffer, size_t length);
int64_t ReadRawAt(int descriptor, void* buffer, size_t length, int64_t offset);
int64_t WriteRawAt(int descriptor, const void* buffer, size_t length, int64_t offset);

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
