#include "os/object_kind.h"

#include "os/lnx/handles.h"

namespace kiv::os {

ObjectKind KindOfObject(void* handle) {
  switch (KindOf(handle)) {
    case Kind::kFree:
      return ObjectKind::kNone;
    case Kind::kEvent:
      return ObjectKind::kEvent;
    case Kind::kSemaphore:
    case Kind::kSharedSemaphore:
      return ObjectKind::kSemaphore;
    case Kind::kMutex:
      return ObjectKind::kMutex;
    case Kind::kThread:
      return ObjectKind::kThread;
    case Kind::kBlock:
      return ObjectKind::kSharedMemory;
    case Kind::kPipe:
      return ObjectKind::kPipe;
    default:
      return ObjectKind::kOther;
  }
}

}  // namespace kiv::os
