// One call of kivsdu.dll that answers as a test wants.
#ifndef KIV_TESTS_SUPPORT_STUBBED_IMPORT_H
#define KIV_TESTS_SUPPORT_STUBBED_IMPORT_H

#include <windows.h>

#include <cerrno>
#include <cstdint>

#include "support/import_patch.h"

namespace kiv::test {

// An import returns a value and leaves an errno and a last error that differ, so that a test sees
// which of the two was taken. One at a time; for functions of the runtime and the system of any
// arguments, which it does not look at.
class StubbedImport {
 public:
  static constexpr intptr_t kFailed = -1;

  StubbedImport(const char* function, intptr_t result, int errnoValue, uint32_t lastError)
      : patch_(function, reinterpret_cast<void*>(&StubbedImport::Give)) {
    state_ = {result, errnoValue, lastError, 0};
  }
  StubbedImport(const StubbedImport&) = delete;
  StubbedImport& operator=(const StubbedImport&) = delete;

  uint32_t calls() const { return state_.calls; }

 private:
  struct State {
    intptr_t result;
    int errnoValue;
    uint32_t lastError;
    uint32_t calls;
  };

  static intptr_t Give() {
    ++state_.calls;
    errno = state_.errnoValue;
    SetLastError(state_.lastError);
    return state_.result;
  }

  static inline State state_ = {};
  ImportPatch patch_;
};

}  // namespace kiv::test

#endif
