// What kind of object a handle names, for the checked flavour of the library alone.
#ifndef KIV_OS_OBJECT_KIND_H
#define KIV_OS_OBJECT_KIND_H

#include <cstdint>

namespace kiv::os {

enum class ObjectKind : uint8_t {
  kUnknown,  // the system does not tell
  kNone,     // the handle is closed, or was never one
  kEvent,
  kSemaphore,
  kMutex,
  kThread,
  kSharedMemory,
  kPipe,  // on Windows also a file
  kOther,
};

// Any value is permitted. Never waits for a transfer on the object.
ObjectKind KindOfObject(void* handle);

}  // namespace kiv::os

#endif
