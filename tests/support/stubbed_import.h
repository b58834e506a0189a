// Replaces one import of kivsdu.dll by a stub.
#ifndef KIV_TESTS_SUPPORT_STUBBED_IMPORT_H
#define KIV_TESTS_SUPPORT_STUBBED_IMPORT_H

#include <cstdint>

#include "support/import_patch.h"
#include "support/last_error.h"

namespace kiv::test {

// Makes an import return a value and set errno and the last error. A test passes two different
// errors and sees which one the library recorded. Only one object at a time. For functions of the
// runtime and the system with any arguments; the stub ignores them.
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
    SetErrors(state_.errnoValue, state_.lastError);
    return state_.result;
  }

  static inline State state_ = {};
  ImportPatch patch_;
};

}  // namespace kiv::test

#endif
