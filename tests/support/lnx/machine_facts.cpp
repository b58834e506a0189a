#include "support/machine_facts.h"

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cstdio>

namespace kiv::test {
namespace {

// The first line that a command prints.
std::string LineOf(const char* command) {
  char line[256] = {};
  std::FILE* output = popen(command, "r");
  EXPECT_NE(output, nullptr) << command;
  EXPECT_NE(std::fgets(line, sizeof line, output), nullptr) << command;
  EXPECT_EQ(pclose(output), 0) << command;
  const std::string text = line;
  return text.substr(0, text.find('\n'));
}

rlim_t SoftLimit(__rlimit_resource resource) {
  rlimit limit = {};
  EXPECT_EQ(getrlimit(resource, &limit), 0);
  return limit.rlim_cur;
}

}  // namespace

uint32_t ProcessorsOfMachine() { return static_cast<uint32_t>(std::stoul(LineOf("nproc"))); }

uint32_t PageBytesOfMachine() {
  return static_cast<uint32_t>(std::stoul(LineOf("getconf PAGESIZE")));
}

std::string SystemDirectoryOfMachine() { return "/etc"; }

std::string LoginNameOfProcess() { return LineOf("id -un 2>/dev/null || id -u"); }

uint32_t SystemDriveOfMachine() { return 1; }

KivHandle ThisProcess() { return reinterpret_cast<KivHandle>(intptr_t{-1}); }

WorkingSetBytes WorkingSetOfProcess() { return {SoftLimit(RLIMIT_MEMLOCK), SoftLimit(RLIMIT_RSS)}; }

}  // namespace kiv::test
