#include "support/open_handles.h"

#include <windows.h>

#include <cstdint>

namespace kiv::test {
namespace {

constexpr uintptr_t kHandleStep = 4;
constexpr uintptr_t kHandlesLookedAt = 8'000;

}  // namespace

// Tries every number, because Wine reports no handle count of a process.
size_t OpenHandles() {
  size_t count = 0;
  for (uintptr_t i = 1; i <= kHandlesLookedAt; ++i) {
    DWORD flags = 0;
    if (GetHandleInformation(reinterpret_cast<HANDLE>(i * kHandleStep), &flags)) ++count;
  }
  return count;
}

}  // namespace kiv::test
