// Makes the library see a machine with one processor. Its locks then do not measure the spin
// budget, which takes each process several seconds under Wine. For tests that start many processes
// and do not test the budget.
#ifndef KIV_TESTS_ONE_PROCESSOR_H
#define KIV_TESTS_ONE_PROCESSOR_H

#ifdef _WIN32
#include "support/import_patch.h"
#include "support/system_interface.h"
#endif

namespace kiv::test {

#ifdef _WIN32

class OneProcessor {
 public:
  OneProcessor() { original_ = reinterpret_cast<decltype(original_)>(patch_.original()); }

 private:
  static void WINAPI Tell(SYSTEM_INFO* info) {
    original_(info);
    info->dwNumberOfProcessors = 1;
  }

  static inline decltype(&GetSystemInfo) original_ = nullptr;

  ImportPatch patch_{"GetSystemInfo", reinterpret_cast<void*>(&Tell)};
};

#else

class OneProcessor {
 public:
  OneProcessor() {}  // user-provided, so that compilers do not warn of an unused variable
};

#endif

}  // namespace kiv::test

#endif
