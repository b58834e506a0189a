#include "support/system_info.h"

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cerrno>
#include <map>

#include "os/lnx/thread_record.h"

namespace kiv::test {

uint32_t OwnThreadId() { return static_cast<uint32_t>(gettid()); }

uint32_t ExitCodeOf(void* thread) {
  const os::ValueResult<uint32_t> code = os::ReadExitCode(thread);
  EXPECT_TRUE(code.ok) << code.error;
  return code.value;
}

uint32_t PriorityClassOf(void* process) {
  static const std::map<int, uint32_t> kClassOfNice = {{-20, 0x100}, {-10, 0x80}, {-5, 0x8000},
                                                       {0, 0x20},    {5, 0x4000}, {19, 0x40}};
  const auto id = reinterpret_cast<intptr_t>(process);
  errno = 0;
  const int nice = getpriority(PRIO_PROCESS, id == -1 ? 0 : static_cast<id_t>(id));
  const auto found = kClassOfNice.find(nice);
  return errno == 0 && found != kClassOfNice.end() ? found->second : 0;
}

}  // namespace kiv::test
