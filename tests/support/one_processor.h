// Has the library believe that the machine has one processor, as long as this lives. Its locks then
// measure no spin budget, which takes each process under Wine seconds: for tests that start many
// processes and are about something else.
#ifndef KIV_TESTS_ONE_PROCESSOR_H
#define KIV_TESTS_ONE_PROCESSOR_H

#ifdef _WIN32
#include <windows.h>

#include "support/import_patch.h"
#endif

namespace kiv::test {

#ifdef _WIN32

class OneProcessor {
 private:
  static void WINAPI Tell(SYSTEM_INFO* info) {
    GetSystemInfo(info);
    info->dwNumberOfProcessors = 1;
  }

  ImportPatch patch_{"GetSystemInfo", reinterpret_cast<void*>(&Tell)};
};

#else

class OneProcessor {
 public:
  OneProcessor() {}  // so that one that is only there is no unused variable
};

#endif

}  // namespace kiv::test

#endif
