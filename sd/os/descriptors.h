// Files by descriptors of the C runtime. Errors are errno.
//
//   ValueResult<uint32_t> ReadDescriptor(uint32_t file, void* buffer, uint32_t length)
//   ValueResult<uint32_t> WriteDescriptor(uint32_t file, const void* buffer, uint32_t length)
//       the count that the runtime returns
//   ValueResult<uint32_t> SeekDescriptor(uint32_t file, int32_t offset, uint32_t origin)
//   ValueResult<uint64_t> SeekDescriptor64(uint32_t file, int64_t offset, uint32_t origin)
//       the new position
//   ValueResult<void*> SystemFile(uint32_t file)
//       the system's file behind a descriptor, for transfers.h
//
// On failure a number has all bits set, and SystemFile returns null.
//
// w32: inline, because after a call that entered the kernel one more stack frame costs as much as
// everything else that an operation does.
#ifndef KIV_OS_DESCRIPTORS_H
#define KIV_OS_DESCRIPTORS_H

#include "inline/descriptors.h"
#include "os/os.h"

namespace kiv::os {

// Means "no descriptor".
constexpr uint32_t kNoDescriptor = 0xFFFFFFFF;

// Open flags and share flags that the library itself passes.
constexpr uint32_t kOpenReadWrite = 0x0002;
constexpr uint32_t kOpenOnlyIfNew = 0x0400;
constexpr uint32_t kOpenBinary = 0x8000;
constexpr uint32_t kShareNothing = 0x10;
constexpr uint32_t kShareEverything = 0x40;

// Origin of the library's own seeks.
constexpr uint32_t kFromStart = 0;

// errno of a bad descriptor and of a full disk; last error of a full disk.
extern const uint32_t kErrnoBadDescriptor;
extern const uint32_t kErrnoNoSpace;
extern const uint32_t kErrorDiskFull;

// Both return kNoDescriptor on failure.
ValueResult<uint32_t> CreateDescriptor(const char* path, uint32_t permissions);
ValueResult<uint32_t> OpenDescriptor(const char* path, uint32_t openFlags, uint32_t permissions);

struct SharedDescriptor {
  uint32_t file;       // kNoDescriptor on failure
  bool heldByAnother;  // the failure is a sharing violation
};
ValueResult<SharedDescriptor> OpenSharedDescriptor(const char* path, uint32_t openFlags,
                                                   uint32_t shareFlags, uint32_t permissions);

Result CloseDescriptor(uint32_t file);

// Returns when the device has stored the file's data and size.
Result FlushDescriptor(uint32_t file);

// All bits set on failure.
ValueResult<uint32_t> TellDescriptor(uint32_t file);
ValueResult<uint32_t> DescriptorLength(uint32_t file);

// 1 at the end of the file, 0 before it, -1 on failure.
int32_t IsAtEnd(uint32_t file);

// Cuts or extends the file to `length` bytes.
Result ResizeDescriptor(uint32_t file, int32_t length);

}  // namespace kiv::os

#endif
