// Single transfers of descriptors, without the library's modes. Each is retried if a signal
// interrupts it, and returns the count, or -1 with errno.
#ifndef KIV_OS_LNX_RAW_TRANSFERS_H
#define KIV_OS_LNX_RAW_TRANSFERS_H

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

// WriteRaw for a descriptor that may be a pipe or a socket: the signal that a write without a
// reader raises does not reach the host.
int64_t WriteRawWithoutSignal(int descriptor, const void* buffer, size_t length);

}  // namespace kiv::os

#endif
