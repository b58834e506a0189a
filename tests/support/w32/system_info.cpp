#include "support/system_info.h"

#include <gtest/gtest.h>
#include <windows.h>

namespace kiv::test {

uint32_t OwnThreadId() { return GetCurrentThreadId(); }

uint32_t ExitCodeOf(void* thread) {
  DWORD code = 0;
  EXPECT_TRUE(GetExitCodeThread(thread, &code));
  return code;
}

uint32_t PriorityClassOf(void* process) { return GetPriorityClass(process); }

}  // namespace kiv::test
