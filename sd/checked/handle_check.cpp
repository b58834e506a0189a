#include "checked/handle_check.h"

#include "checked/report.h"

namespace kiv::checked {
namespace {

constexpr intptr_t kNoPipeOrProcess = -1;
constexpr intptr_t kCallingThread = -2;

const char* NameOf(os::ObjectKind kind) {
  switch (kind) {
    case os::ObjectKind::kEvent:
      return "an event";
    case os::ObjectKind::kSemaphore:
      return "a semaphore";
    case os::ObjectKind::kMutex:
      return "a mutex";
    case os::ObjectKind::kThread:
      return "a thread";
    case os::ObjectKind::kSharedMemory:
      return "a shared block";
    case os::ObjectKind::kPipe:
      return "a pipe";
    default:
      return "another object";
  }
}

bool IsCheckable(const KivHandle* handle) {
  if (handle == nullptr || *handle == nullptr) return false;
  const auto number = reinterpret_cast<intptr_t>(*handle);
  return number != kNoPipeOrProcess && number != kCallingThread;
}

void RequireOpen(void* handle, os::ObjectKind found, const char* operation) {
  if (found != os::ObjectKind::kNone) return;
  Fail(MakePlace(operation, 0), "handle %p is closed, or never was one", handle);
}

}  // namespace

void CheckHandle(const KivHandle* handle, os::ObjectKind kind, const char* operation) {
  if (!IsCheckable(handle)) return;
  const os::ObjectKind found = os::KindOfObject(*handle);
  RequireOpen(*handle, found, operation);
  if (found == kind || found == os::ObjectKind::kUnknown) return;
  Fail(MakePlace(operation, 0), "handle %p is that of %s, not of %s", *handle, NameOf(found),
       NameOf(kind));
}

void CheckIsOpen(const KivHandle* handle, const char* operation) {
  if (IsCheckable(handle)) RequireOpen(*handle, os::KindOfObject(*handle), operation);
}

}  // namespace kiv::checked
